// What the rooms of windows, controls and menus know of a window. Knows nothing of X11; what the
// user sees of a top-level window and its children is its Surface.
#pragma once

#include <windows.h>
#include <QImage>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

class QPainter;

namespace windowing {

class Surface;
struct Subclass;
struct SubclassCall;
struct Window;

struct WindowClass {
    std::u16string name;
    UINT style = 0; // CS_DBLCLKS
    WNDPROC procedure = nullptr;
    HICON icon = nullptr;
    HCURSOR cursor = nullptr;
    HBRUSH background = nullptr;
    ATOM atom = 0;
};

// What a system class keeps with each of its windows.
class WindowPart {
public:
    WindowPart() = default;
    virtual ~WindowPart() = default;
    WindowPart(const WindowPart&) = delete;
    WindowPart& operator=(const WindowPart&) = delete;

    // The window has been placed, shown, hidden, enabled or disabled.
    virtual void Follow(const Window& /*window*/) {}
    // What is seen above the picture of the top-level window, in whose coordinates `painter` is.
    virtual void DrawOn(QPainter& /*painter*/) {}
};

// Of the thread that has the windows alone.
struct Window {
    HWND handle = nullptr;
    const WindowClass* windowClass = nullptr; // classes are never forgotten
    WNDPROC procedure = nullptr;
    std::vector<std::shared_ptr<Subclass>> subclasses; // the newest first
    SubclassCall* subclassCall = nullptr;              // the innermost one in progress
    std::u16string title;
    DWORD style = 0;
    DWORD exStyle = 0;
    HWND parent = nullptr;      // of a child; lives longer than the child
    HWND owner = nullptr;       // of a top-level window; takes this window with it
    std::vector<HWND> children; // oldest first, which lies above the others
    int id = 0;                 // of a child
    LONG_PTR userData = 0;
    RECT rect{};                      // on the screen, or a child's in its parent; pixels
    UINT dpi = 96;                    // of the screen that it was last found on
    bool visible = false;             // by itself; also when it lies outside the screen
    bool destroying = false;          // DestroyWindow has begun
    bool leaveWanted = false;         // TrackMouseEvent is out
    bool rounded = false;             // corners
    RECT invalid{};                   // client coordinates; empty: nothing to paint
    bool eraseWanted = false;         // before the next painting
    HDC canvasContext = nullptr;      // between BeginPaint and EndPaint
    std::unique_ptr<WindowPart> part; // of a system class

    // Of top-level windows alone.
    QImage canvas;                    // what BeginPaint draws on, for the children too
    int openContexts = 0;             // on the canvas
    HWND focusBefore = nullptr;       // had the focus when the window was last deactivated
    std::unique_ptr<Surface> surface; // as long as the window is worked with

    Window();
    ~Window();
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    int Width() const { return rect.right - rect.left; }
    int Height() const { return rect.bottom - rect.top; }
    RECT Client() const { return {0, 0, Width(), Height()}; }
    bool IsChild() const { return (style & WS_CHILD) != 0; }
    bool Enabled() const { return (style & WS_DISABLED) == 0; }
    bool Layered() const { return (exStyle & WS_EX_LAYERED) != 0; }
    bool ClickThrough() const { return (exStyle & WS_EX_TRANSPARENT) != 0; }
    bool TakesActivation() const { return (exStyle & WS_EX_NOACTIVATE) == 0; }
};

// Shared for as long as somebody works with it: a procedure may destroy its own window. Null for
// null and for what is no window any more.
std::shared_ptr<Window> Find(HWND handle);
// A handle that no window had before and none will have again.
HWND NewHandle();

LRESULT Send(Window& window, UINT message, WPARAM wParam, LPARAM lParam);
bool Show(Window& window, int command); // whether it was visible before

inline bool IsEmpty(const RECT& rect) {
    return rect.right <= rect.left || rect.bottom <= rect.top;
}
inline bool Contains(const RECT& rect, POINT point) {
    return point.x >= rect.left && point.x < rect.right && point.y >= rect.top &&
           point.y < rect.bottom;
}
inline RECT Shifted(const RECT& rect, LONG x, LONG y) {
    return {rect.left + x, rect.top + y, rect.right + x, rect.bottom + y};
}
RECT Common(const RECT& one, const RECT& other); // empty when they do not meet

} // namespace windowing

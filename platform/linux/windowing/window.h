// What the rooms of windows and menus know of a window. Knows nothing of X11; what the user sees of
// a window is its Surface.
#pragma once

#include <windows.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <QImage>

namespace windowing {

class Surface;

struct WindowClass {
    std::u16string name;
    UINT style = 0; // CS_DBLCLKS
    WNDPROC procedure = nullptr;
    HICON icon = nullptr;
    HCURSOR cursor = nullptr;
    HBRUSH background = nullptr;
    ATOM atom = 0;
};

// Of the thread that has the windows alone.
struct Window {
    HWND handle = nullptr;
    const WindowClass* windowClass = nullptr; // classes are never forgotten
    WNDPROC procedure = nullptr;
    std::u16string title;
    DWORD style = 0;
    DWORD exStyle = 0;
    HWND owner = nullptr; // takes this window with it
    LONG_PTR userData = 0;
    RECT rect{};                      // on the screen, pixels
    UINT dpi = 96;                    // of the screen that it was last found on
    bool visible = false;             // also when it lies outside the screen
    bool destroying = false;          // DestroyWindow has begun
    bool leaveWanted = false;         // TrackMouseEvent is out
    bool rounded = false;             // corners
    RECT invalid{};                   // client coordinates; empty: nothing to paint
    bool eraseWanted = false;         // before the next painting
    QImage canvas;                    // what BeginPaint draws on
    HDC canvasContext = nullptr;      // between BeginPaint and EndPaint
    std::unique_ptr<Surface> surface; // as long as the window is worked with

    Window();
    ~Window();
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    int Width() const { return rect.right - rect.left; }
    int Height() const { return rect.bottom - rect.top; }
    bool Layered() const { return (exStyle & WS_EX_LAYERED) != 0; }
    bool ClickThrough() const { return (exStyle & WS_EX_TRANSPARENT) != 0; }
};

// Shared for as long as somebody works with it: a procedure may destroy its own window. Null for
// null and for what is no window any more.
std::shared_ptr<Window> Find(HWND handle);
// Oldest first.
std::vector<std::shared_ptr<Window>> AllWindows();
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

} // namespace windowing

// What a window does with the messages that its own procedure leaves alone.
#include "windowing/focus.h"
#include "windowing/window_table.h"
#include "windowing/window_text.h"

namespace windowing {

namespace {

constexpr COLORREF kFieldColour = RGB(255, 255, 255);
constexpr COLORREF kFaceColour = RGB(240, 240, 240);

LRESULT SetClassCursor(const Window& window) {
    if (window.windowClass->cursor == nullptr) {
        return FALSE;
    }
    SetCursor(window.windowClass->cursor);
    return TRUE;
}

LRESULT EraseBackground(const Window& window, HDC context) {
    if (window.windowClass->background == nullptr) {
        return FALSE;
    }
    const RECT client = window.Client();
    FillRect(context, &client, window.windowClass->background);
    return TRUE;
}

LRESULT PaintNothing(HWND handle) {
    PAINTSTRUCT paint{};
    BeginPaint(handle, &paint);
    EndPaint(handle, &paint);
    return 0;
}

LRESULT AskForMenu(Window& window, LPARAM position) {
    POINT point{static_cast<short>(LOWORD(position)), static_cast<short>(HIWORD(position))};
    ClientToScreen(window.handle, &point);
    Send(window, WM_CONTEXTMENU, reinterpret_cast<WPARAM>(window.handle),
         MAKELPARAM(point.x, point.y));
    return 0;
}

// What no child has handled is its parent's.
LRESULT PassToParent(const Window& window, UINT message, WPARAM wParam, LPARAM lParam) {
    return window.IsChild() ? SendMessageW(window.parent, message, wParam, lParam) : 0;
}

// The window manager usually takes this key before anybody else.
LRESULT CloseByKey(const Window& window, WPARAM key) {
    if (key == VK_F4) {
        PostMessageW(TopLevelOf(window).handle, WM_CLOSE, 0, 0);
    }
    return 0;
}

// Black on the usual backgrounds.
LRESULT ColourControl(HDC context, COLORREF background) {
    SetTextColor(context, RGB(0, 0, 0));
    SetBkColor(context, background);
    struct Brush {
        COLORREF colour;
        HBRUSH brush;
    };
    static const Brush brushes[] = {
        {kFieldColour, CreateSolidBrush(kFieldColour)},
        {kFaceColour, CreateSolidBrush(kFaceColour)},
    };
    return reinterpret_cast<LRESULT>(brushes[background == kFieldColour ? 0 : 1].brush);
}

} // namespace
} // namespace windowing

LRESULT DefWindowProcW(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const auto window = windowing::Find(handle);
    if (window == nullptr) {
        return 0;
    }
    switch (message) {
    case WM_NCCREATE:
        return TRUE;
    case WM_CLOSE:
        DestroyWindow(handle);
        return 0;
    case WM_SETCURSOR:
        return windowing::SetClassCursor(*window);
    case WM_ERASEBKGND:
        return windowing::EraseBackground(*window, reinterpret_cast<HDC>(wParam));
    case WM_PAINT:
        return windowing::PaintNothing(handle);
    case WM_RBUTTONUP:
        return windowing::AskForMenu(*window, lParam);
    case WM_MOUSEWHEEL:
    case WM_CONTEXTMENU:
        return windowing::PassToParent(*window, message, wParam, lParam);
    case WM_NCHITTEST:
        return HTCLIENT;
    case WM_ACTIVATE:
        if (LOWORD(wParam) != WA_INACTIVE) {
            windowing::FocusActivated(*window);
        }
        return 0;
    case WM_SYSKEYDOWN:
        return windowing::CloseByKey(*window, wParam);
    case WM_SETTEXT:
        return windowing::SetTitle(*window, reinterpret_cast<LPCWSTR>(lParam));
    case WM_GETTEXT:
        return windowing::CopyText(window->title, wParam, lParam);
    case WM_GETTEXTLENGTH:
        return static_cast<LRESULT>(window->title.size());
    case WM_CTLCOLOREDIT:
        return windowing::ColourControl(reinterpret_cast<HDC>(wParam), windowing::kFieldColour);
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLORBTN:
        return windowing::ColourControl(reinterpret_cast<HDC>(wParam), windowing::kFaceColour);
    default:
        return 0;
    }
}

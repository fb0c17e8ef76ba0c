// What a window does with the messages that its own procedure leaves alone.
#include "windowing/window.h"

namespace windowing {

namespace {

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
    const RECT client{0, 0, window.Width(), window.Height()};
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
    default:
        return 0;
    }
}

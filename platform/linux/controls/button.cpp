// Push buttons that their parent draws.
#include "controls/control.h"
#include "controls/controls.h"
#include "windowing/window_text.h"

#include <memory>

namespace controls {

namespace {

class Button final : public Control {
public:
    bool pressed = false; // as it looks
    bool pointer = false; // a press of the pointer is under way
    bool byKey = false;   // a press of the blank key is
};

void Paint(const windowing::Window& window, const Button& button) {
    PAINTSTRUCT paint{};
    HDC context = BeginPaint(window.handle, &paint);
    const RECT client = window.Client();
    FillRect(context, &client, AskForColours(window, WM_CTLCOLORBTN, context));
    DRAWITEMSTRUCT item{};
    item.CtlType = ODT_BUTTON;
    item.CtlID = static_cast<UINT>(window.id);
    item.itemAction = ODA_DRAWENTIRE;
    item.itemState = (button.pressed ? ODS_SELECTED : 0U) | (window.Enabled() ? 0U : ODS_DISABLED) |
                     (GetFocus() == window.handle ? ODS_FOCUS : 0U);
    item.hwndItem = window.handle;
    item.hDC = context;
    item.rcItem = client;
    SendMessageW(window.parent, WM_DRAWITEM, static_cast<WPARAM>(window.id),
                 reinterpret_cast<LPARAM>(&item));
    EndPaint(window.handle, &paint);
}

void SetPressed(const windowing::Window& window, Button& button, bool pressed) {
    if (button.pressed != pressed) {
        button.pressed = pressed;
        InvalidateRect(window.handle, nullptr, FALSE);
        UpdateWindow(window.handle); // a short press is seen, too
    }
}

bool IsInside(const windowing::Window& window, LPARAM point) {
    return windowing::Contains(
        window.Client(), {static_cast<short>(LOWORD(point)), static_cast<short>(HIWORD(point))});
}

void Press(const windowing::Window& window, Button& button) {
    SetFocus(window.handle);
    SetCapture(window.handle);
    button.pointer = true;
    SetPressed(window, button, true);
}

void Release(const windowing::Window& window, Button& button, LPARAM point) {
    if (!button.pointer) {
        return;
    }
    const bool click = button.pressed && IsInside(window, point);
    ReleaseCapture(); // which ends the press
    if (click) {
        Notify(window, BN_CLICKED);
    }
}

void EndPress(const windowing::Window& window, Button& button) {
    button.pointer = false;
    button.byKey = false;
    SetPressed(window, button, false);
}

void PressByKey(const windowing::Window& window, Button& button, WPARAM key) {
    if (key == VK_SPACE && !button.pointer && !button.byKey) {
        button.byKey = true;
        SetPressed(window, button, true);
    }
}

void ReleaseByKey(const windowing::Window& window, Button& button, WPARAM key) {
    if (key == VK_SPACE && button.byKey) {
        EndPress(window, button);
        Notify(window, BN_CLICKED);
    }
}

LRESULT Handle(windowing::Window& window, Button& button, UINT message, WPARAM wParam,
               LPARAM lParam) {
    switch (message) {
    case WM_ERASEBKGND:
        return TRUE; // with the rest
    case WM_PAINT:
        Paint(window, button);
        return 0;
    case WM_LBUTTONDOWN:
        Press(window, button);
        return 0;
    case WM_MOUSEMOVE:
        if (button.pointer) {
            SetPressed(window, button, IsInside(window, lParam));
        }
        return 0;
    case WM_LBUTTONUP:
        Release(window, button, lParam);
        return 0;
    case WM_CAPTURECHANGED:
    case WM_KILLFOCUS:
        EndPress(window, button);
        InvalidateRect(window.handle, nullptr, FALSE);
        return 0;
    case WM_SETFOCUS:
        InvalidateRect(window.handle, nullptr, FALSE);
        return 0;
    case WM_KEYDOWN:
        PressByKey(window, button, wParam);
        return 0;
    case WM_KEYUP:
        ReleaseByKey(window, button, wParam);
        return 0;
    case WM_SETFONT:
        SetFont(window, button, wParam, lParam);
        return 0;
    case WM_GETFONT:
        return reinterpret_cast<LRESULT>(button.font);
    case WM_SETTEXT:
        InvalidateRect(window.handle, nullptr, FALSE);
        return windowing::SetTitle(window, reinterpret_cast<LPCWSTR>(lParam));
    case WM_ENABLE:
        InvalidateRect(window.handle, nullptr, FALSE);
        return 0;
    default:
        return DefWindowProcW(window.handle, message, wParam, lParam);
    }
}

} // namespace

LRESULT CALLBACK ButtonProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const auto window = windowing::Find(handle);
    if (window == nullptr) {
        return 0;
    }
    if (message == WM_NCCREATE) {
        window->part = std::make_unique<Button>();
    }
    auto* const button = static_cast<Button*>(window->part.get());
    return button != nullptr ? Handle(*window, *button, message, wParam, lParam)
                             : DefWindowProcW(handle, message, wParam, lParam);
}

} // namespace controls

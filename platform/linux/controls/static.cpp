// Labels: a text in its parent's colours that lets the pointer through.
#include "controls/control.h"
#include "controls/controls.h"
#include "windowing/window_text.h"

#include <memory>

namespace controls {

namespace {

void Paint(const windowing::Window& window, const Control& label) {
    PAINTSTRUCT paint{};
    HDC context = BeginPaint(window.handle, &paint);
    const RECT client = window.Client();
    FillRect(context, &client, AskForColours(window, WM_CTLCOLORSTATIC, context));
    HGDIOBJ former = label.font != nullptr ? SelectObject(context, label.font) : nullptr;
    RECT area = client;
    const UINT alignment = (window.style & SS_CENTER) != 0 ? DT_CENTER : DT_LEFT;
    DrawTextW(context, window.title.c_str(), static_cast<int>(window.title.size()), &area,
              alignment | DT_WORDBREAK | DT_NOPREFIX);
    if (former != nullptr) {
        SelectObject(context, former);
    }
    EndPaint(window.handle, &paint);
}

} // namespace

LRESULT CALLBACK StaticProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const auto window = windowing::Find(handle);
    if (window == nullptr) {
        return 0;
    }
    if (message == WM_NCCREATE) {
        window->part = std::make_unique<Control>();
    }
    auto* const label = static_cast<Control*>(window->part.get());
    if (label == nullptr) {
        return DefWindowProcW(handle, message, wParam, lParam);
    }
    switch (message) {
    case WM_NCHITTEST:
        return HTTRANSPARENT;
    case WM_ERASEBKGND:
        return TRUE; // with the text
    case WM_PAINT:
        Paint(*window, *label);
        return 0;
    case WM_SETFONT:
        SetFont(*window, *label, wParam, lParam);
        return 0;
    case WM_GETFONT:
        return reinterpret_cast<LRESULT>(label->font);
    case WM_SETTEXT:
        InvalidateRect(handle, nullptr, TRUE);
        return windowing::SetTitle(*window, reinterpret_cast<LPCWSTR>(lParam));
    case WM_ENABLE:
        InvalidateRect(handle, nullptr, TRUE);
        return 0;
    default:
        return DefWindowProcW(handle, message, wParam, lParam);
    }
}

} // namespace controls

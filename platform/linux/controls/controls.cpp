#include "controls/controls.h"

#include "controls/control.h"
#include "windowing/window_classes.h"

std::vector<WNDCLASSEXW> windowing::SystemClasses() {
    using namespace controls;
    const auto make = [](LPCWSTR name, WNDPROC procedure, LPWSTR cursor, UINT style) {
        WNDCLASSEXW one{};
        one.cbSize = sizeof one;
        one.style = style;
        one.lpfnWndProc = procedure;
        one.hCursor = LoadCursorW(nullptr, cursor);
        one.lpszClassName = name;
        return one;
    };
    return {make(TEXT("STATIC"), StaticProcedure, IDC_ARROW, 0),
            make(TEXT("EDIT"), EditProcedure, IDC_IBEAM, CS_DBLCLKS),
            // Each press of a button counts, however quickly they come.
            make(TEXT("BUTTON"), ButtonProcedure, IDC_ARROW, 0)};
}

namespace controls {

HBRUSH AskForColours(const windowing::Window& control, UINT message, HDC context) {
    return reinterpret_cast<HBRUSH>(SendMessageW(control.parent, message,
                                                 reinterpret_cast<WPARAM>(context),
                                                 reinterpret_cast<LPARAM>(control.handle)));
}

void Notify(const windowing::Window& control, WORD notification) {
    SendMessageW(control.parent, WM_COMMAND, MAKEWPARAM(control.id, notification),
                 reinterpret_cast<LPARAM>(control.handle));
}

void SetFont(const windowing::Window& window, Control& control, WPARAM font, LPARAM redraw) {
    control.font = reinterpret_cast<HFONT>(font);
    if (LOWORD(redraw) != 0) {
        InvalidateRect(window.handle, nullptr, TRUE);
    }
}

} // namespace controls

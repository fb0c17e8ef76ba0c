#include "windowing/window_text.h"

#include "windowing/surface.h"

#include <algorithm>

namespace windowing {

LRESULT CopyText(std::u16string_view text, WPARAM room, LPARAM buffer) {
    auto* const to = reinterpret_cast<LPWSTR>(buffer);
    if (room == 0 || to == nullptr) {
        return 0;
    }
    const std::u16string_view part = text.substr(0, room - 1);
    *std::copy(part.begin(), part.end(), to) = u'\0';
    return static_cast<LRESULT>(part.size());
}

LRESULT SetTitle(Window& window, LPCWSTR text) {
    window.title = text != nullptr ? text : TEXT("");
    if (window.surface != nullptr) {
        window.surface->setWindowTitle(QString::fromStdU16String(window.title));
    }
    return TRUE;
}

} // namespace windowing

BOOL SetWindowTextW(HWND window, LPCWSTR text) {
    return SendMessageW(window, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text)) != 0 ? TRUE : FALSE;
}

int GetWindowTextW(HWND window, LPWSTR text, int room) {
    if (text == nullptr || room <= 0) {
        return 0;
    }
    *text = u'\0';
    return static_cast<int>(SendMessageW(window, WM_GETTEXT, static_cast<WPARAM>(room),
                                         reinterpret_cast<LPARAM>(text)));
}

// Parents, children and owners, and what is enabled among them.
#include "windowing/focus.h"
#include "windowing/pointer.h"
#include "windowing/window_table.h"

#include <algorithm>

using windowing::Find;
using windowing::Window;

HWND GetDlgItem(HWND handle, int id) {
    const std::shared_ptr<Window> parent = Find(handle);
    if (parent == nullptr) {
        return nullptr;
    }
    const auto found = std::find_if(parent->children.begin(), parent->children.end(),
                                    [&](HWND child) { return Find(child)->id == id; });
    return found == parent->children.end() ? nullptr : *found;
}

int GetDlgCtrlID(HWND handle) {
    const std::shared_ptr<Window> window = Find(handle);
    return window == nullptr ? 0 : window->id;
}

BOOL EnableWindow(HWND handle, BOOL enable) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr) {
        return FALSE;
    }
    const bool before = window->Enabled();
    if (before == (enable != FALSE)) {
        return before ? FALSE : TRUE;
    }
    if (before) {
        window->style |= WS_DISABLED;
        windowing::DropCaptureOf(handle);
        windowing::DropFocusOf(handle);
    } else {
        window->style &= ~WS_DISABLED;
    }
    if (window->part != nullptr) {
        window->part->Follow(*window);
    }
    windowing::Send(*window, WM_ENABLE, static_cast<WPARAM>(enable != FALSE), 0);
    return before ? FALSE : TRUE;
}

BOOL IsWindowEnabled(HWND handle) {
    const std::shared_ptr<Window> window = Find(handle);
    return window != nullptr && window->Enabled() ? TRUE : FALSE;
}

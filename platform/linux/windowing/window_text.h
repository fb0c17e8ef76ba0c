// What WM_GETTEXT and WM_SETTEXT do, for windows whose text is their title and for those whose text
// is elsewhere.
#pragma once

#include "windowing/window.h"

namespace windowing {

// To the buffer of WM_GETTEXT, cut to its room, with the terminator. Returns the units without it.
LRESULT CopyText(std::u16string_view text, WPARAM room, LPARAM buffer);
// A null text is an empty one.
LRESULT SetTitle(Window& window, LPCWSTR text);

} // namespace windowing

// Which window a point of the screen belongs to.
#pragma once

#include "windowing/window.h"

namespace windowing {

// The innermost window that takes the pointer at the point: within `preferred`, a top-level window,
// if that shows there, else within the highest one that does. Null for none.
std::shared_ptr<Window> WindowAt(POINT onScreen, HWND preferred);

} // namespace windowing

// Where windows stand, and what that means for their DPI.
#pragma once

#include "windowing/window.h"

namespace windowing {

// Logical DPI of the screen that shows the middle of `rect`, else of the primary one.
UINT DpiAt(const RECT& rect);
// Tells the window with WM_DPICHANGED if its screen's DPI is another than it was.
void CheckDpi(Window& window);
// From now on windows are told when their screen's DPI changes.
void WatchScreens();
// The system has moved or resized the window, which only happens to managed ones.
void Moved(Window& window, const RECT& rect);

} // namespace windowing

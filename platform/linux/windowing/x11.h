// What Qt leaves to X11 itself: regions of windows, and whether there is a compositor. On another
// platform of Qt's, as the offscreen one, there are no regions, and all is composited.
#pragma once

#include <windef.h>
#include <QtGui/qwindowdefs.h>

#include <optional>
#include <vector>

namespace windowing {

// In client coordinates; nothing means the whole window.
using Region = std::optional<std::vector<RECT>>;

bool OnX11();
// Asks the server each time, since compositors come and go.
bool HasCompositor();
// Where the window takes the pointer.
void SetInputRegion(WId window, const Region& region);
// Where the window is at all.
void SetBoundingRegion(WId window, const Region& region);

} // namespace windowing

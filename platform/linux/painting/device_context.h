// Device contexts as the room itself sees them.
#pragma once

#include "painting/surface.h"

#include <windef.h>

#include <memory>

namespace painting {

bool IsContext(HDC dc);
// What drawing on `dc` goes to; null when it has no picture.
std::shared_ptr<Surface> SurfaceOf(HDC dc);

// Of the primary screen, 0 where there is none.
int ScreenDpiX();
int ScreenDpiY();

} // namespace painting

// Device contexts as the room itself sees them.
#pragma once

#include "painting/fonts.h"
#include "painting/raster.h"

#include <wingdi.h>

#include <memory>

namespace painting {

bool IsContext(HDC dc);
// What drawing on `dc` goes to; null when it has no picture.
std::shared_ptr<Raster> RasterOf(HDC dc);

// How plain text is written on a context.
struct TextState {
    HGDIOBJ font = nullptr;           // the one selected, which may have been deleted
    std::shared_ptr<const Face> face; // its face, null for that of the stock fonts
    COLORREF colour = RGB(0, 0, 0);
    COLORREF background = RGB(0xFF, 0xFF, 0xFF);
    int backgroundMode = OPAQUE;
};
// Null for what is no context.
const TextState* TextStateOf(HDC dc);

// Of the primary screen, 0 where there is none.
int ScreenDpiX();
int ScreenDpiY();

} // namespace painting

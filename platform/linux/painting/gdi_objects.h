// Bitmaps, brushes and fonts as the room itself sees them.
#pragma once

#include "painting/fonts.h"
#include "painting/raster.h"

#include <QColor>
#include <wingdi.h>

#include <memory>
#include <optional>

namespace painting {

struct Bitmap {
    std::shared_ptr<Raster> raster;
    HDC holder = nullptr; // the context that it is selected into
};

struct Brush {
    std::optional<QColor> colour; // without one it fills nothing
};

struct TextFont {
    std::shared_ptr<const Face> face; // null for that of the stock fonts
};

// Null for what is no such object, or no longer one. Valid until the object is deleted.
Bitmap* BitmapOf(HGDIOBJ handle);
const Brush* BrushOf(HGDIOBJ handle);
const TextFont* TextFontOf(HGDIOBJ handle);

// What is written in without a font of one's own; null where there is no screen.
std::shared_ptr<const Face> StockFace();

QColor Opaque(COLORREF colour);

} // namespace painting

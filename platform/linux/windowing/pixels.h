// Arithmetic on pictures of premultiplied ARGB pixels: opacity, rounded corners, and which parts of
// a picture are there at all. Knows nothing of windows.
#pragma once

#include <windef.h>
#include <QImage>
#include <QPoint>

#include <optional>
#include <vector>

namespace windowing {

// Fills `target` from `source` at `from`, all of it multiplied by alpha / 255. The part must lie
// within `source`. Without `pixelAlpha` the source's own alpha counts as 255.
void CopyWithAlpha(const QImage& source, QPoint from, bool pixelAlpha, unsigned alpha,
                   QImage& target);

// Cuts the four corners to arcs of `radius` pixels, smoothed.
void RoundCorners(QImage& picture, int radius);

// The pixels with an alpha of at least `leastAlpha`, as rectangles that do not overlap; nothing
// when these are all the pixels, or so torn that no region is worth having.
std::optional<std::vector<RECT>> PartsOfAlpha(const QImage& picture, unsigned leastAlpha);

} // namespace windowing

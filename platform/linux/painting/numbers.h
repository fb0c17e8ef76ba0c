// Which numbers drawing takes.
#pragma once

#include <windef.h>
#include <QRect>

#include <algorithm>
#include <cmath>

namespace painting {

// Beyond this the coordinates of text, which are 26.6 bits wide, and of shapes would run over.
constexpr float kFarthest = 1.0e6F;

template <typename... Numbers>
bool AreNumbers(Numbers... numbers) {
    return ((std::abs(numbers) <= kFarthest) && ...); // false for what is not a number, too
}

// Without what is beyond that.
inline QRect RectOf(const RECT& rectangle) {
    constexpr LONG kFarthestEdge = static_cast<LONG>(kFarthest);
    const auto edge = [&](LONG at) { return std::clamp(at, -kFarthestEdge, kFarthestEdge); };
    const QPoint corner(edge(rectangle.left), edge(rectangle.top));
    return {corner, QSize(edge(rectangle.right) - corner.x(), edge(rectangle.bottom) - corner.y())};
}

} // namespace painting

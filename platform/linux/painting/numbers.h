// Which numbers drawing takes.
#pragma once

#include <cmath>

namespace painting {

// Beyond this the coordinates of text, which are 26.6 bits wide, and of shapes would run over.
constexpr float kFarthest = 1.0e6F;

template <typename... Numbers>
bool AreNumbers(Numbers... numbers) {
    return ((std::abs(numbers) <= kFarthest) && ...); // false for what is not a number, too
}

} // namespace painting

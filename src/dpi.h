// The scale of everything that is drawn: the program's one DPI value and the two ways of scaling a
// length by it.
#pragma once

#include <windows.h>

// Dots per inch of the screen that the overlay is on; 96 is the design's own size. UI thread only.
extern int DpiScale;

// A length given at 96 DPI, in whole pixels, rounded.
inline int S(int length) {
    return MulDiv(length, DpiScale, 96);
}

// A length given at 96 DPI, in pixels.
inline float F(int length) {
    return static_cast<float>(DpiScale) * static_cast<float>(length) / 96.0F;
}

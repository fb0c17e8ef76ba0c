// What the windowing room needs of a device context: the picture behind it.
#pragma once

#include <windef.h>

class QImage;

namespace painting {

// The picture that drawing on `dc` goes to, premultiplied ARGB with 32 bits, or RGB of which the
// fourth byte means nothing; null when the context has none, as that of the screen.
QImage* PictureOf(HDC dc);

// A context that draws on `picture`, which stays the caller's and outlives it. Given back by
// CloseContext. Null when there is no memory for it.
HDC OpenContext(QImage& picture);
// For a window within the picture: what is drawn at 0, 0 lands at `origin`, and nothing lands
// outside `clip`. Both are in the picture's coordinates.
HDC OpenContext(QImage& picture, POINT origin, RECT clip);
void CloseContext(HDC dc);

} // namespace painting

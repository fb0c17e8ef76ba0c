// What the windowing room needs of a device context: the picture behind it.
#pragma once

#include <windef.h>

class QImage;

namespace painting {

// The picture that drawing on `dc` goes to, premultiplied ARGB with 32 bits; null when the context
// has none, as that of the screen.
QImage* PictureOf(HDC dc);

// A context that draws on `picture`, which stays the caller's and outlives it. Given back by
// CloseContext. Null when there is no memory for it.
HDC OpenContext(QImage& picture);
void CloseContext(HDC dc);

} // namespace painting

// What a window shows, for tests and tools.
#pragma once

#include <windef.h>
#include <QImage>

namespace windowing {

// As the user sees it, after constant alpha and rounded corners; premultiplied. Null when nothing
// has been painted yet, and for what is no window.
QImage PushedPicture(HWND window);

} // namespace windowing

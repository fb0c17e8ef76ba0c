// What is behind the handles of cursors and icons.
#pragma once

#include <windows.h>
#include <QImage>
#include <Qt>

namespace windowing {

// A null cursor is none at all, as on Windows; what is no cursor is an arrow.
Qt::CursorShape ShapeOf(HCURSOR cursor);
// Null for null and for what is no icon, or none any more.
QImage PictureOf(HICON icon);

} // namespace windowing

// What the windowing room needs of a font: the one in which Qt's own controls write.
#pragma once

#include <windef.h>
#include <QFont>

namespace painting {

// The generic sans serif for null and for what is no font, or no longer one.
QFont FontOf(HFONT font);

} // namespace painting

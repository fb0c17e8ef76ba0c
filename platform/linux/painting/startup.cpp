// The beginning and the end of GDI+.
#include "painting/fonts.h"
#include "painting/text_layout.h"

#include <gdiplus.h>

namespace Gdiplus {

GpStatus GdiplusStartup(ULONG_PTR* token, const GdiplusStartupInput* input,
                        GdiplusStartupOutput* /*output*/) {
    if (token == nullptr || input == nullptr) {
        return InvalidParameter;
    }
    if (input->GdiplusVersion != 1) {
        return UnsupportedGdiplusVersion;
    }
    *token = 1; // nothing is counted: every part makes what it needs when it is asked
    return Ok;
}

void GdiplusShutdown(ULONG_PTR /*token*/) {
    painting::ForgetLayouts();
    painting::ForgetFaces();
}

} // namespace Gdiplus

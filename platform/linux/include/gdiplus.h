// The flat GDI+ interface, as far as the program uses it. Declarations only; the room painting/
// implements it. All of it belongs to the thread that has the windows. Lengths are pixels, and
// colours ARGB, not premultiplied.
#pragma once

#include <windef.h>
#include <wingdi.h>

using LANGID = WORD;
constexpr LANGID LANG_NEUTRAL = 0;

namespace painting {
class Fill; // what a brush fills with, known to the room alone
}

namespace Gdiplus {

using REAL = float;
using ARGB = DWORD;

enum GpStatus {
    Ok = 0,
    GenericError = 1,
    InvalidParameter = 2,
    OutOfMemory = 3,
    NotImplemented = 6,
    FontFamilyNotFound = 14,
    UnsupportedGdiplusVersion = 17,
};
using Status = GpStatus;

enum FillMode { FillModeAlternate = 0, FillModeWinding = 1 };
enum WrapMode {
    WrapModeTile = 0,
    WrapModeTileFlipX = 1,
    WrapModeTileFlipY = 2,
    WrapModeTileFlipXY = 3,
    WrapModeClamp = 4,
};
enum CombineMode { CombineModeReplace = 0, CombineModeIntersect = 1 };
enum Unit { UnitWorld = 0, UnitDisplay = 1, UnitPixel = 2, UnitPoint = 3 };
enum SmoothingMode {
    SmoothingModeDefault = 0,
    SmoothingModeHighSpeed = 1,
    SmoothingModeHighQuality = 2,
    SmoothingModeNone = 3,
    SmoothingModeAntiAlias = 4,
};
enum TextRenderingHint {
    TextRenderingHintSystemDefault = 0,
    TextRenderingHintAntiAliasGridFit = 3,
    TextRenderingHintAntiAlias = 4,
    TextRenderingHintClearTypeGridFit = 5,
};
enum FontStyle {
    FontStyleRegular = 0,
    FontStyleBold = 1,
    FontStyleItalic = 2,
    FontStyleBoldItalic = 3,
};
enum StringAlignment {
    StringAlignmentNear = 0,
    StringAlignmentCenter = 1,
    StringAlignmentFar = 2,
};
enum StringTrimming {
    StringTrimmingNone = 0,
    StringTrimmingCharacter = 1,
    StringTrimmingEllipsisCharacter = 3,
};
enum StringFormatFlags {
    StringFormatFlagsNoWrap = 0x1000,
    StringFormatFlagsLineLimit = 0x2000,
};

using GpFillMode = FillMode;
using GpUnit = Unit;
using GpWrapMode = WrapMode;

struct PointF {
    PointF() = default;
    PointF(REAL x, REAL y) : X(x), Y(y) {}

    REAL X = 0.0F;
    REAL Y = 0.0F;
};
using GpPointF = PointF;

struct RectF {
    RectF() = default;
    RectF(REAL x, REAL y, REAL width, REAL height) : X(x), Y(y), Width(width), Height(height) {}

    REAL X = 0.0F;
    REAL Y = 0.0F;
    REAL Width = 0.0F;
    REAL Height = 0.0F;
};

// ---- Objects ----------------------------------------------------------------------------------

// Each is made by a function GdipCreate... and goes by its GdipDelete....
class GpFont;
class GpFontCollection;
class GpFontFamily;
class GpGraphics;
class GpPath;
class GpPen;
class GpStringFormat;

class GpBrush {
public:
    GpBrush() = default;
    virtual ~GpBrush() = default;
    GpBrush(const GpBrush&) = delete;
    GpBrush& operator=(const GpBrush&) = delete;

    virtual const painting::Fill& BrushFill() const = 0;
};
class GpSolidFill : public GpBrush {};
class GpLineGradient : public GpBrush {};

// ---- The interface as a whole -----------------------------------------------------------------

using DebugEventProc = void*;

struct GdiplusStartupInput {
    UINT32 GdiplusVersion = 1; // nothing else is known
    DebugEventProc DebugEventCallback = nullptr;
    BOOL SuppressBackgroundThread = FALSE;
    BOOL SuppressExternalCodecs = FALSE;
};
struct GdiplusStartupOutput;

GpStatus GdiplusStartup(ULONG_PTR* token, const GdiplusStartupInput* input,
                        GdiplusStartupOutput* output);
// Lets go of what is kept for speed; objects that are still there stay usable.
void GdiplusShutdown(ULONG_PTR token);

namespace DllExports {

// ---- Graphics ---------------------------------------------------------------------------------

// On the screen's context, and on one without a bitmap, text can be measured; drawing fails.
GpStatus GdipCreateFromHDC(HDC dc, GpGraphics** graphics);
GpStatus GdipDeleteGraphics(GpGraphics* graphics);
GpStatus GdipGraphicsClear(GpGraphics* graphics, ARGB colour);
GpStatus GdipSetSmoothingMode(GpGraphics* graphics, SmoothingMode mode);
// Text is always smoothed in greys, whatever the hint: the picture may be translucent.
GpStatus GdipSetTextRenderingHint(GpGraphics* graphics, TextRenderingHint hint);
GpStatus GdipSetClipRect(GpGraphics* graphics, REAL x, REAL y, REAL width, REAL height,
                         CombineMode mode);
GpStatus GdipResetClip(GpGraphics* graphics);

// ---- Brushes, pens and paths ------------------------------------------------------------------

GpStatus GdipCreateSolidFill(ARGB colour, GpSolidFill** brush);
// Two different points and WrapModeTile.
GpStatus GdipCreateLineBrush(const GpPointF* from, const GpPointF* to, ARGB first, ARGB last,
                             GpWrapMode wrap, GpLineGradient** brush);
// Colours along the line instead of its two: ascending positions, of which the first is 0 and the
// last 1.
GpStatus GdipSetLinePresetBlend(GpLineGradient* brush, const ARGB* colours, const REAL* positions,
                                INT count);
GpStatus GdipDeleteBrush(GpBrush* brush);

// UnitWorld or UnitPixel, which are the same here.
GpStatus GdipCreatePen1(ARGB colour, REAL width, GpUnit unit, GpPen** pen);
GpStatus GdipDeletePen(GpPen* pen);

GpStatus GdipCreatePath(GpFillMode mode, GpPath** path);
GpStatus GdipDeletePath(GpPath* path);
// Degrees, clockwise from the right. A straight line joins it to the figure so far.
GpStatus GdipAddPathArc(GpPath* path, REAL x, REAL y, REAL width, REAL height, REAL startAngle,
                        REAL sweepAngle);
GpStatus GdipClosePathFigure(GpPath* path);

// ---- Shapes -----------------------------------------------------------------------------------

GpStatus GdipFillRectangle(GpGraphics* graphics, GpBrush* brush, REAL x, REAL y, REAL width,
                           REAL height);
GpStatus GdipFillEllipse(GpGraphics* graphics, GpBrush* brush, REAL x, REAL y, REAL width,
                         REAL height);
GpStatus GdipFillPath(GpGraphics* graphics, GpBrush* brush, GpPath* path);
GpStatus GdipFillPolygon(GpGraphics* graphics, GpBrush* brush, const GpPointF* points, INT count,
                         GpFillMode mode);
GpStatus GdipDrawPath(GpGraphics* graphics, GpPen* pen, GpPath* path);
// A pen's pixels have their centres at whole coordinates: that of width 1 fills the rows `y` and
// `y` + `height`, and the columns alike.
GpStatus GdipDrawRectangle(GpGraphics* graphics, GpPen* pen, REAL x, REAL y, REAL width,
                           REAL height);
GpStatus GdipDrawLine(GpGraphics* graphics, GpPen* pen, REAL x1, REAL y1, REAL x2, REAL y2);

// ---- Fonts ------------------------------------------------------------------------------------

// Installed families by their names, and "Segoe MDL2 Assets" where the icon font is installed that
// stands in for it. No collection.
GpStatus GdipCreateFontFamilyFromName(const WCHAR* name, GpFontCollection* collection,
                                      GpFontFamily** family);
// The one of the process; deleting it does nothing.
GpStatus GdipGetGenericFontFamilySansSerif(GpFontFamily** family);
GpStatus GdipDeleteFontFamily(GpFontFamily* family);
// UnitPoint, at the primary screen's DPI, UnitPixel or UnitWorld. `style` is of FontStyle.
GpStatus GdipCreateFont(const GpFontFamily* family, REAL size, INT style, Unit unit, GpFont** font);
GpStatus GdipDeleteFont(GpFont* font);

// ---- Text -------------------------------------------------------------------------------------

GpStatus GdipCreateStringFormat(INT flags, LANGID language, GpStringFormat** format);
GpStatus GdipDeleteStringFormat(GpStringFormat* format);
GpStatus GdipSetStringFormatAlign(GpStringFormat* format, StringAlignment alignment);
GpStatus GdipSetStringFormatLineAlign(GpStringFormat* format, StringAlignment alignment);
GpStatus GdipSetStringFormatTrimming(GpStringFormat* format, StringTrimming trimming);
GpStatus GdipSetStringFormatFlags(GpStringFormat* format, INT flags);

// `length` is in units, -1 up to the terminating zero. A rectangle's width or height of 0 sets no
// bound. `format` may be null. Of the text, `*unitsFitted` units and `*linesFilled` lines have
// room; either may be null.
GpStatus GdipMeasureString(GpGraphics* graphics, const WCHAR* text, INT length, const GpFont* font,
                           const RectF* rectangle, const GpStringFormat* format, RectF* box,
                           INT* unitsFitted, INT* linesFilled);
GpStatus GdipDrawString(GpGraphics* graphics, const WCHAR* text, INT length, const GpFont* font,
                        const RectF* rectangle, const GpStringFormat* format, const GpBrush* brush);

} // namespace DllExports
} // namespace Gdiplus

#include "drawing.h"

#include <algorithm>

using namespace Gdiplus;
using namespace Gdiplus::DllExports;

// ---- Objects ------------------------------------------------------------------------------------

GdiplusSession::GdiplusSession() {
    GdiplusStartupInput input;
    input.GdiplusVersion = 1;
    if (GdiplusStartup(&token_, &input, nullptr) != Ok) {
        token_ = 0;
    }
}

GdiplusSession::~GdiplusSession() {
    if (token_ != 0) {
        GdiplusShutdown(token_);
    }
}

BrushOwner MakeBrush(ARGB colour) {
    GpSolidFill* brush = nullptr;
    GdipCreateSolidFill(colour, &brush);
    return BrushOwner(brush);
}

BrushOwner MakeVerticalGradient(float height, ARGB top, ARGB bottom) {
    const PointF begin{0, 0};
    const PointF end{0, height};
    GpLineGradient* gradient = nullptr;
    GdipCreateLineBrush(&begin, &end, top, bottom, WrapModeTile, &gradient);
    return BrushOwner(gradient);
}

PenOwner MakePen(ARGB colour, float width) {
    GpPen* pen = nullptr;
    GdipCreatePen1(colour, width, UnitWorld, &pen);
    return PenOwner(pen);
}

namespace {

// Kept by the process: GDI+ gives it once and for all.
GpFontFamily* GenericSansSerif() {
    static GpFontFamily* const family = [] {
        GpFontFamily* generic = nullptr;
        return GdipGetGenericFontFamilySansSerif(&generic) == Ok ? generic : nullptr;
    }();
    return family;
}

FontOwner CreateFontOf(const GpFontFamily* family, float size, FontStyle style) {
    GpFont* font = nullptr;
    if (family == nullptr || GdipCreateFont(family, size, style, UnitPoint, &font) != Ok) {
        return nullptr;
    }
    return FontOwner(font);
}

} // namespace

FontOwner MakeFont(const WCHAR* family, float size, FontStyle style) {
    GpFontFamily* named = nullptr;
    if (GdipCreateFontFamilyFromName(family, nullptr, &named) != Ok) {
        named = nullptr;
    }
    const std::unique_ptr<GpFontFamily, GdipDeleter<&GdipDeleteFontFamily>> owner(named);
    FontOwner font = CreateFontOf(named, size, style);
    return font != nullptr ? std::move(font) : CreateFontOf(GenericSansSerif(), size, style);
}

FormatOwner MakeTextFormat(StringAlignment horizontal, StringAlignment vertical, int flags) {
    GpStringFormat* format = nullptr;
    if (GdipCreateStringFormat(0, LANG_NEUTRAL, &format) != Ok) {
        return nullptr;
    }
    GdipSetStringFormatAlign(format, horizontal);
    GdipSetStringFormatLineAlign(format, vertical);
    GdipSetStringFormatFlags(format, flags);
    return FormatOwner(format);
}

// ---- Shapes -------------------------------------------------------------------------------------

void AddRoundedRect(GpPath* path, float x, float y, float w, float h, float r) {
    const float d = 2.0F * std::min({w / 2.0F, h / 2.0F, r});
    GdipAddPathArc(path, x, y, d, d, 180.0F, 90.0F);
    GdipAddPathArc(path, x + w - d, y, d, d, 270.0F, 90.0F);
    GdipAddPathArc(path, x + w - d, y + h - d, d, d, 0.0F, 90.0F);
    GdipAddPathArc(path, x, y + h - d, d, d, 90.0F, 90.0F);
    GdipClosePathFigure(path);
}

PathOwner MakeRoundedRect(const RectF& area, float radius) {
    GpPath* path = nullptr;
    GdipCreatePath(FillModeAlternate, &path);
    AddRoundedRect(path, area.X, area.Y, area.Width, area.Height, radius);
    return PathOwner(path);
}

void FillRounded(GpGraphics* graphics, ARGB colour, const RectF& area, float radius) {
    GdipFillPath(graphics, MakeBrush(colour).get(), MakeRoundedRect(area, radius).get());
}

// ---- Text ---------------------------------------------------------------------------------------

namespace {

// Twice what the narrowest letters can fill of the highest rectangle in use: what comes after that
// is never seen, and a system that lays it all out would take seconds for a megabyte.
constexpr std::size_t kMostVisible = 32768; // 16-bit units

INT VisibleLength(WideView text) {
    return static_cast<INT>(std::min(text.size(), kMostVisible));
}

} // namespace

void DrawTextIn(GpGraphics* graphics, WideView text, GpFont* font, ARGB colour, const RectF& area,
                GpStringFormat* format) {
    GdipDrawString(graphics, text.data(), VisibleLength(text), font, &area, format,
                   MakeBrush(colour).get());
}

RectF MeasureText(GpGraphics* graphics, WideView text, const RectF& area, GpFont* font,
                  GpStringFormat* format) {
    RectF box(0, 0, 0, 0);
    GdipMeasureString(graphics, text.data(), VisibleLength(text), font, &area, format, &box,
                      nullptr, nullptr);
    return box;
}

float MeasureTextHeight(GpGraphics* graphics, const WideString& text, const RectF& rectangle,
                        GpFont* font) {
    const FormatOwner format =
        MakeTextFormat(StringAlignmentNear, StringAlignmentNear, StringFormatFlagsLineLimit);
    return MeasureText(graphics, text, rectangle, font, format.get()).Height;
}

// ---- Pictures -----------------------------------------------------------------------------------

GraphicsOwner GraphicsOn(HDC context) {
    GpGraphics* graphics = nullptr;
    return GdipCreateFromHDC(context, &graphics) == Ok ? GraphicsOwner(graphics) : nullptr;
}

MemoryPicture::MemoryPicture(HDC context, HBITMAP bitmap) : context_(context), bitmap_(bitmap) {
    if (bitmap == nullptr) {
        return;
    }
    selection_.emplace(context, bitmap);
    graphics_ = GraphicsOn(context);
    GdipSetSmoothingMode(graphics_.get(), SmoothingModeAntiAlias);
    GdipSetTextRenderingHint(graphics_.get(), TextRenderingHintClearTypeGridFit);
}

namespace {

HBITMAP MakeBitmapWithAlpha(int width, int height) {
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = -height; // top-down
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    void* bits = nullptr;
    return CreateDIBSection(nullptr, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
}

} // namespace

Canvas::Canvas(int width, int height)
    : MemoryPicture(CreateCompatibleDC(nullptr), MakeBitmapWithAlpha(width, height)), size_{
                                                                                          width,
                                                                                          height} {
    GdipGraphicsClear(Graphics(), 0);
}

void Canvas::PushTo(HWND window, BYTE opacity) const {
    POINT source{0, 0};
    SIZE size = size_;
    BLENDFUNCTION blend{AC_SRC_OVER, 0, opacity, AC_SRC_ALPHA};
    UpdateLayeredWindow(window, nullptr, nullptr, &size, Context(), &source, 0, &blend, ULW_ALPHA);
}

OffscreenBitmap::OffscreenBitmap(HDC target, int width, int height)
    : MemoryPicture(CreateCompatibleDC(target), CreateCompatibleBitmap(target, width, height)),
      size_{width, height} {}

void OffscreenBitmap::CopyTo(HDC target, int x, int y) const {
    BitBlt(target, x, y, size_.cx, size_.cy, Context(), 0, 0, SRCCOPY);
}

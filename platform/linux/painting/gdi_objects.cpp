// Bitmaps, brushes and fonts: which handles live, and what they stand for. Knows nothing of
// contexts but their handles.
#include "painting/gdi_objects.h"

#include "application/application.h"
#include "painting/device_context.h"
#include "painting/living.h"
#include "painting/text_font.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <variant>

namespace painting {

namespace {

using Object = std::variant<Bitmap, Brush, TextFont>;

Living<HGDIOBJ, Object>& Objects() {
    static Living<HGDIOBJ, Object> objects;
    return objects;
}

template <typename Kind>
HGDIOBJ Add(Kind object) {
    return Objects().Add(std::make_unique<Object>(std::move(object)));
}

template <typename Kind>
Kind* Find(HGDIOBJ handle) {
    Object* object = Objects().Find(handle);
    return object == nullptr ? nullptr : std::get_if<Kind>(object);
}

struct Stock {
    int index;
    HGDIOBJ handle;
};

const auto& StockObjects() {
    static const Stock objects[] = {{NULL_BRUSH, Add(Brush{})},
                                    {SYSTEM_FONT, Add(TextFont{})},
                                    {DEFAULT_GUI_FONT, Add(TextFont{})}};
    return objects;
}

bool IsStock(HGDIOBJ handle) {
    return std::any_of(std::begin(StockObjects()), std::end(StockObjects()),
                       [&](const Stock& stock) { return stock.handle == handle; });
}

// Sides beyond this make no window, and their product would no longer be a size.
constexpr LONG kLongestSide = 32767;

bool IsOurFormat(const BITMAPINFOHEADER& header) {
    return header.biBitCount == 32 && header.biCompression == BI_RGB && header.biPlanes == 1 &&
           header.biWidth > 0 && header.biWidth <= kLongestSide && header.biHeight < 0 &&
           header.biHeight >= -kLongestSide;
}

// Null when there is no memory for it.
std::shared_ptr<Raster> BlackRaster(int width, int height, QImage::Format format) {
    QImage picture(width, height, format);
    if (picture.isNull()) {
        return nullptr;
    }
    picture.fill(format == QImage::Format_RGB32 ? Qt::black : Qt::transparent);
    return std::make_shared<Raster>(std::move(picture));
}

} // namespace

Bitmap* BitmapOf(HGDIOBJ handle) {
    return Find<Bitmap>(handle);
}

const Brush* BrushOf(HGDIOBJ handle) {
    return Find<Brush>(handle);
}

const TextFont* TextFontOf(HGDIOBJ handle) {
    return Find<TextFont>(handle);
}

std::shared_ptr<const Face> StockFace() {
    constexpr qreal kEms = 1.0 / 8; // of an inch
    const int dpi = ScreenDpiY();
    return dpi <= 0 ? nullptr : FaceOf(SansSerif(), dpi * kEms, FW_NORMAL, false);
}

QColor Opaque(COLORREF colour) {
    return {GetRValue(colour), GetGValue(colour), GetBValue(colour)};
}

QFont FontOf(HFONT font) {
    const TextFont* found = TextFontOf(font);
    const std::shared_ptr<const Face> face =
        found == nullptr || found->face == nullptr ? StockFace() : found->face;
    return face == nullptr ? QFont() : face->text;
}

} // namespace painting

using namespace painting;

HBITMAP CreateDIBSection(HDC /*dc*/, const BITMAPINFO* info, UINT usage, void** bits,
                         HANDLE section, DWORD /*offset*/) {
    if (bits != nullptr) {
        *bits = nullptr;
    }
    if (info == nullptr || usage != DIB_RGB_COLORS || section != nullptr ||
        !IsOurFormat(info->bmiHeader)) {
        return nullptr;
    }
    std::shared_ptr<Raster> raster = BlackRaster(info->bmiHeader.biWidth, -info->bmiHeader.biHeight,
                                                 QImage::Format_ARGB32_Premultiplied);
    if (raster == nullptr) {
        return nullptr;
    }
    if (bits != nullptr) {
        *bits = raster->Picture()->bits();
    }
    return static_cast<HBITMAP>(Add(Bitmap{std::move(raster), nullptr}));
}

HBITMAP CreateCompatibleBitmap(HDC dc, int width, int height) {
    if (!IsContext(dc) || width < 0 || height < 0 || width > kLongestSide ||
        height > kLongestSide) {
        return nullptr;
    }
    std::shared_ptr<Raster> raster =
        BlackRaster(std::max(width, 1), std::max(height, 1), QImage::Format_RGB32);
    return raster == nullptr ? nullptr
                             : static_cast<HBITMAP>(Add(Bitmap{std::move(raster), nullptr}));
}

HBRUSH CreateSolidBrush(COLORREF colour) {
    return static_cast<HBRUSH>(Add(Brush{Opaque(colour)}));
}

HFONT CreateFontW(int height, int width, int escapement, int orientation, int weight, DWORD italic,
                  DWORD underline, DWORD strikeOut, DWORD /*charSet*/, DWORD /*outPrecision*/,
                  DWORD /*clipPrecision*/, DWORD /*quality*/, DWORD /*pitchAndFamily*/,
                  LPCWSTR family) {
    if (height >= 0 || height < -static_cast<int>(kLargestFont) || width != 0 || escapement != 0 ||
        orientation != 0 || italic != 0 || underline != 0 || strikeOut != 0 ||
        application::Instance() == nullptr) {
        return nullptr;
    }
    const std::optional<Family> found = family == nullptr ? std::nullopt : FindFamily(family);
    return static_cast<HFONT>(
        Add(TextFont{FaceOf(found.value_or(SansSerif()), -height,
                            weight >= FW_SEMIBOLD ? FW_BOLD : FW_NORMAL, false)}));
}

HGDIOBJ GetStockObject(int index) {
    for (const Stock& stock : StockObjects()) {
        if (stock.index == index) {
            return stock.handle;
        }
    }
    return nullptr;
}

BOOL DeleteObject(HGDIOBJ object) {
    if (IsStock(object)) {
        return TRUE;
    }
    const Bitmap* bitmap = BitmapOf(object);
    if (bitmap != nullptr && bitmap->holder != nullptr) {
        return FALSE;
    }
    return Objects().Remove(object) ? TRUE : FALSE;
}

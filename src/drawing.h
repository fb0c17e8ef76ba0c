// Drawing with GDI+: owners of its objects, the shapes and fonts that every painter uses, and the
// picture that a layered window is painted on. Knows nothing of what is drawn.
#pragma once

#include "wide_text.h"

#include <windows.h>
#include <objbase.h>
#include <gdiplus.h>

#include <memory>
#include <string_view>
#include <type_traits>

using WideView = std::basic_string_view<WCHAR>;

// Deletes what the flat interface created.
template <auto Delete>
struct GdipDeleter {
    template <typename T>
    void operator()(T* object) const {
        Delete(object);
    }
};

using GraphicsOwner =
    std::unique_ptr<Gdiplus::GpGraphics, GdipDeleter<&Gdiplus::DllExports::GdipDeleteGraphics>>;
using BrushOwner =
    std::unique_ptr<Gdiplus::GpBrush, GdipDeleter<&Gdiplus::DllExports::GdipDeleteBrush>>;
using PenOwner = std::unique_ptr<Gdiplus::GpPen, GdipDeleter<&Gdiplus::DllExports::GdipDeletePen>>;
using PathOwner =
    std::unique_ptr<Gdiplus::GpPath, GdipDeleter<&Gdiplus::DllExports::GdipDeletePath>>;
using FontOwner =
    std::unique_ptr<Gdiplus::GpFont, GdipDeleter<&Gdiplus::DllExports::GdipDeleteFont>>;
using FormatOwner = std::unique_ptr<Gdiplus::GpStringFormat,
                                    GdipDeleter<&Gdiplus::DllExports::GdipDeleteStringFormat>>;

// Deletes fonts and brushes of GDI.
struct GdiDeleter {
    void operator()(HGDIOBJ object) const { DeleteObject(object); }
};
using GdiFontOwner = std::unique_ptr<std::remove_pointer_t<HFONT>, GdiDeleter>;
using GdiBrushOwner = std::unique_ptr<std::remove_pointer_t<HBRUSH>, GdiDeleter>;

// GDI+ itself, for as long as it lives. Whoever draws keeps one.
class GdiplusSession {
public:
    GdiplusSession();
    ~GdiplusSession();
    GdiplusSession(const GdiplusSession&) = delete;
    GdiplusSession& operator=(const GdiplusSession&) = delete;

private:
    ULONG_PTR token_ = 0; // 0 when it could not be started
};

BrushOwner MakeBrush(Gdiplus::ARGB colour);
PenOwner MakePen(Gdiplus::ARGB colour, float width);

// A font of `size` points. A family that the system lacks is replaced by the generic sans serif.
// Null when not even that is there; drawing with a null font draws nothing.
FontOwner MakeFont(const WCHAR* family, float size, Gdiplus::FontStyle style);

FormatOwner MakeTextFormat(Gdiplus::StringAlignment horizontal, Gdiplus::StringAlignment vertical,
                           int flags = 0);

// Appends a rounded rectangle to a path. A radius too large for it is reduced to fit, so that one
// of half the height gives a pill.
void AddRoundedRect(Gdiplus::GpPath* path, float x, float y, float w, float h, float r);

PathOwner MakeRoundedRect(const Gdiplus::RectF& area, float radius);
void FillRounded(Gdiplus::GpGraphics* graphics, Gdiplus::ARGB colour, const Gdiplus::RectF& area,
                 float radius);

void DrawTextIn(Gdiplus::GpGraphics* graphics, WideView text, Gdiplus::GpFont* font,
                Gdiplus::ARGB colour, const Gdiplus::RectF& area, Gdiplus::GpStringFormat* format);

// The box that the text takes when it is wrapped into `area`.
Gdiplus::RectF MeasureText(Gdiplus::GpGraphics* graphics, WideView text, const Gdiplus::RectF& area,
                           Gdiplus::GpFont* font, Gdiplus::GpStringFormat* format);

// The height of that box for a text of whole lines that begin at the top left.
float MeasureTextHeight(Gdiplus::GpGraphics* graphics, const WideString& text,
                        const Gdiplus::RectF& rectangle, Gdiplus::GpFont* font);

// A 32-bit picture in memory, transparent at first, with a graphics object on it.
class Canvas {
public:
    Canvas(int width, int height);
    ~Canvas();
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    // Null when there was no memory for the picture.
    Gdiplus::GpGraphics* Graphics() const { return graphics_.get(); }
    // Shows the picture as the contents of a layered window, which takes its size.
    void PushTo(HWND window, BYTE opacity) const;

private:
    const SIZE size_;
    HDC context_ = nullptr;
    HBITMAP bitmap_ = nullptr;
    HGDIOBJ former_ = nullptr; // what the context held before the bitmap
    GraphicsOwner graphics_;   // goes before the context that it draws on
};

// An opaque picture in memory as wide and high as what it will be copied to, for painting that must
// not be seen half done. What is not painted stays as the system made it.
class OffscreenBitmap {
public:
    OffscreenBitmap(HDC target, int width, int height);
    ~OffscreenBitmap();
    OffscreenBitmap(const OffscreenBitmap&) = delete;
    OffscreenBitmap& operator=(const OffscreenBitmap&) = delete;

    HDC Context() const { return context_; }
    // Null when there was no memory for the picture.
    Gdiplus::GpGraphics* Graphics() const { return graphics_.get(); }
    // With its top left corner at (x, y).
    void CopyTo(HDC target, int x, int y) const;

private:
    const SIZE size_;
    HDC context_;
    HBITMAP bitmap_;
    HGDIOBJ former_ = nullptr; // what the context held before the bitmap
    GraphicsOwner graphics_;   // goes before the context that it draws on
};

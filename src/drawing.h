// Drawing with GDI+: owners of its objects, the shapes and fonts that every painter uses, and the
// picture that a layered window is painted on. Knows nothing of what is drawn.
#pragma once

#include "owner.h"
#include "wide_text.h"

#include <windows.h>
#include <objbase.h>
#include <gdiplus.h>

#include <memory>
#include <optional>
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

// Deletes fonts, brushes and bitmaps of GDI.
struct GdiDeleter {
    void operator()(HGDIOBJ object) const { DeleteObject(object); }
};
using GdiFontOwner = std::unique_ptr<std::remove_pointer_t<HFONT>, GdiDeleter>;
using GdiBrushOwner = std::unique_ptr<std::remove_pointer_t<HBRUSH>, GdiDeleter>;
using GdiBitmapOwner = std::unique_ptr<std::remove_pointer_t<HBITMAP>, GdiDeleter>;

struct DeleteContext {
    void operator()(HDC context) const { DeleteDC(context); }
};
using MemoryContext = Owner<HDC, DeleteContext>;

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

// A context of the whole screen, to ask and to measure with.
class ScreenContext {
public:
    ScreenContext() : context_(GetDC(nullptr)) {}
    ~ScreenContext() { ReleaseDC(nullptr, context_); }
    ScreenContext(const ScreenContext&) = delete;
    ScreenContext& operator=(const ScreenContext&) = delete;

    HDC get() const { return context_; }

private:
    HDC context_;
};

// Answers one WM_PAINT of a window: what was invalid is valid at its end.
class PaintContext {
public:
    explicit PaintContext(HWND window) : window_(window), context_(BeginPaint(window, &paint_)) {}
    ~PaintContext() { EndPaint(window_, &paint_); }
    PaintContext(const PaintContext&) = delete;
    PaintContext& operator=(const PaintContext&) = delete;

    HDC get() const { return context_; }

private:
    HWND window_;
    PAINTSTRUCT paint_{};
    HDC context_;
};

// Has an object in a context for as long as it lives, in the place of the one that was there.
class Selection {
public:
    Selection(HDC context, HGDIOBJ object)
        : context_(context), former_(SelectObject(context, object)) {}
    ~Selection() { SelectObject(context_, former_); }
    Selection(const Selection&) = delete;
    Selection& operator=(const Selection&) = delete;

private:
    HDC context_;
    HGDIOBJ former_;
};

// Null when the context has nothing to draw on.
GraphicsOwner GraphicsOn(HDC context);

BrushOwner MakeBrush(Gdiplus::ARGB colour);
// From `top` at 0 to `bottom` at `height`.
BrushOwner MakeVerticalGradient(float height, Gdiplus::ARGB top, Gdiplus::ARGB bottom);
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

// A bitmap in a context in memory, with a graphics object on it.
class MemoryPicture {
public:
    HDC Context() const { return context_.get(); }
    // Null when there was no memory for the picture.
    Gdiplus::GpGraphics* Graphics() const { return graphics_.get(); }

protected:
    // Takes the bitmap, which may be null.
    MemoryPicture(HDC context, HBITMAP bitmap);
    ~MemoryPicture() = default;
    MemoryPicture(const MemoryPicture&) = delete;
    MemoryPicture& operator=(const MemoryPicture&) = delete;

private:
    // Each goes before the one above, which it uses: a bitmap cannot be deleted while a context has
    // it.
    MemoryContext context_;
    GdiBitmapOwner bitmap_;
    std::optional<Selection> selection_;
    GraphicsOwner graphics_;
};

// A 32-bit picture, transparent at first.
class Canvas : public MemoryPicture {
public:
    Canvas(int width, int height);

    // Shows the picture as the contents of a layered window, which takes its size.
    void PushTo(HWND window, BYTE opacity) const;

private:
    const SIZE size_;
};

// An opaque picture as wide and high as what it will be copied to, for painting that must not be
// seen half done. What is not painted stays as the system made it.
class OffscreenBitmap : public MemoryPicture {
public:
    OffscreenBitmap(HDC target, int width, int height);

    // With its top left corner at (x, y).
    void CopyTo(HDC target, int x, int y) const;

private:
    const SIZE size_;
};

// A picture in memory that a test lets the program paint on and then looks at.
#pragma once

#include "drawing.h"

#include <cstdint>

class TestPicture {
public:
    TestPicture(int width, int height);
    ~TestPicture();
    TestPicture(const TestPicture&) = delete;
    TestPicture& operator=(const TestPicture&) = delete;

    HDC Context() const { return context_; }
    Gdiplus::GpGraphics* Graphics() const { return graphics_.get(); }
    int Width() const { return width_; }
    // Premultiplied ARGB; GDI leaves the alpha of what it draws undefined.
    const std::uint32_t* Pixels() const { return bits_; }
    // RGB alone.
    std::uint32_t At(int x, int y) const;

private:
    int width_;
    HDC context_;
    HBITMAP bitmap_;
    HGDIOBJ former_;
    std::uint32_t* bits_ = nullptr;
    GraphicsOwner graphics_; // goes before the context that it draws on
};

// An ARGB colour over an opaque RGB one.
std::uint32_t Blend(std::uint32_t background, std::uint32_t colour);
// Whether two RGB colours differ by rounding alone.
bool IsNear(std::uint32_t a, std::uint32_t b);

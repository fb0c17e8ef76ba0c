#include "test_picture.h"

#include <cstdlib>

using namespace Gdiplus::DllExports;

TestPicture::TestPicture(int width, int height) : width_(width) {
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = -height; // top-down
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    void* bits = nullptr;
    context_ = CreateCompatibleDC(nullptr);
    bitmap_ = CreateDIBSection(context_, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    former_ = SelectObject(context_, bitmap_);
    bits_ = static_cast<std::uint32_t*>(bits);
    Gdiplus::GpGraphics* graphics = nullptr;
    GdipCreateFromHDC(context_, &graphics);
    GdipSetSmoothingMode(graphics, Gdiplus::SmoothingModeAntiAlias);
    graphics_.reset(graphics);
}

TestPicture::~TestPicture() {
    graphics_.reset();
    SelectObject(context_, former_);
    DeleteObject(bitmap_);
    DeleteDC(context_);
}

std::uint32_t TestPicture::At(int x, int y) const {
    return bits_[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                 static_cast<std::size_t>(x)] &
           0xFFFFFF;
}

std::uint32_t Blend(std::uint32_t background, std::uint32_t colour) {
    const std::uint32_t alpha = colour >> 24;
    std::uint32_t mixed = 0;
    for (const int shift : {0, 8, 16}) {
        const std::uint32_t over = (colour >> shift) & 0xFF;
        const std::uint32_t under = (background >> shift) & 0xFF;
        mixed |= ((over * alpha + under * (255 - alpha) + 127) / 255) << shift;
    }
    return mixed;
}

bool IsNear(std::uint32_t a, std::uint32_t b) {
    for (const int shift : {0, 8, 16}) {
        const int difference =
            static_cast<int>((a >> shift) & 0xFF) - static_cast<int>((b >> shift) & 0xFF);
        if (std::abs(difference) > 2) {
            return false;
        }
    }
    return true;
}

#include "windowing/pixels.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace windowing {

namespace {

constexpr std::size_t kBytesPerPixel = 4;
constexpr std::size_t kMostParts = 1000;
constexpr std::uint32_t kAlphaByte = 0xFF000000;

// byte * alpha / 255, rounded to the nearest; exact for all bytes, and without a division.
std::uint8_t Scaled(std::uint8_t byte, unsigned alpha) {
    return static_cast<std::uint8_t>(((byte * alpha + 128U) * 257U) >> 16U);
}

void ScaleRow(const std::uint8_t* from, std::uint8_t* to, std::size_t bytes, unsigned alpha) {
    for (std::size_t i = 0; i < bytes; ++i) {
        to[i] = Scaled(from[i], alpha);
    }
}

void MakeOpaque(std::uint32_t* row, std::size_t pixels) {
    for (std::size_t i = 0; i < pixels; ++i) {
        row[i] |= kAlphaByte;
    }
}

const std::uint32_t* PixelRow(const QImage& picture, int y) {
    return reinterpret_cast<const std::uint32_t*>(picture.constScanLine(y));
}

std::uint32_t* PixelRow(QImage& picture, int y) {
    return reinterpret_cast<std::uint32_t*>(picture.scanLine(y));
}

unsigned AlphaOf(std::uint32_t pixel) {
    return pixel >> 24U;
}

// How much of the pixel (x, y), counted from the corner, lies within the arc: 0 to 255.
unsigned ArcCoverage(int x, int y, int radius) {
    const double fromCentreX = radius - x - 0.5;
    const double fromCentreY = radius - y - 0.5;
    const double inside = radius + 0.5 - std::hypot(fromCentreX, fromCentreY);
    return static_cast<unsigned>(std::lround(std::clamp(inside, 0.0, 1.0) * 255));
}

void ScalePixel(QImage& picture, int x, int y, unsigned alpha) {
    std::uint8_t* pixel = picture.scanLine(y) + static_cast<std::size_t>(x) * kBytesPerPixel;
    ScaleRow(pixel, pixel, kBytesPerPixel, alpha);
}

// The runs of one row, as pairs of first and last + 1.
using Runs = std::vector<std::pair<int, int>>;

void FindRuns(const std::uint32_t* row, int width, unsigned leastAlpha, Runs& runs) {
    runs.clear();
    for (int x = 0; x < width;) {
        const auto within = [&](std::uint32_t pixel) { return AlphaOf(pixel) >= leastAlpha; };
        const auto* const first = std::find_if(row + x, row + width, within);
        const auto* const end = std::find_if_not(first, row + width, within);
        if (first != end) {
            runs.emplace_back(static_cast<int>(first - row), static_cast<int>(end - row));
        }
        x = static_cast<int>(end - row);
    }
}

} // namespace

void CopyWithAlpha(const QImage& source, QPoint from, bool pixelAlpha, unsigned alpha,
                   QImage& target) {
    const auto pixels = static_cast<std::size_t>(target.width());
    const std::size_t offset = static_cast<std::size_t>(from.x()) * kBytesPerPixel;
    for (int y = 0; y < target.height(); ++y) {
        const std::uint8_t* fromRow = source.constScanLine(from.y() + y) + offset;
        std::uint8_t* toRow = target.scanLine(y);
        if (alpha == 255 || !pixelAlpha) {
            std::copy_n(fromRow, pixels * kBytesPerPixel, toRow);
            fromRow = toRow;
        }
        if (!pixelAlpha) {
            MakeOpaque(PixelRow(target, y), pixels);
        }
        if (alpha != 255) {
            ScaleRow(fromRow, toRow, pixels * kBytesPerPixel, alpha);
        }
    }
}

void RoundCorners(QImage& picture, int radius) {
    const int right = picture.width() - 1;
    const int bottom = picture.height() - 1;
    const int reach = std::min({radius, picture.width() / 2, picture.height() / 2});
    for (int y = 0; y < reach; ++y) {
        for (int x = 0; x < reach; ++x) {
            const unsigned coverage = ArcCoverage(x, y, radius);
            if (coverage == 255) {
                break; // further in there is nothing to cut
            }
            ScalePixel(picture, x, y, coverage);
            ScalePixel(picture, right - x, y, coverage);
            ScalePixel(picture, x, bottom - y, coverage);
            ScalePixel(picture, right - x, bottom - y, coverage);
        }
    }
}

std::optional<std::vector<RECT>> PartsOfAlpha(const QImage& picture, unsigned leastAlpha) {
    std::vector<RECT> parts;
    Runs above;
    Runs runs;
    std::size_t firstAbove = 0; // of the parts that end at the row above, one for each run
    for (int y = 0; y < picture.height(); ++y) {
        FindRuns(PixelRow(picture, y), picture.width(), leastAlpha, runs);
        if (y != 0 && runs == above) {
            for (std::size_t i = firstAbove; i < parts.size(); ++i) {
                parts[i].bottom = y + 1;
            }
            continue;
        }
        firstAbove = parts.size();
        for (const auto& [first, end] : runs) {
            parts.push_back({first, y, end, y + 1});
        }
        if (parts.size() > kMostParts) {
            return std::nullopt;
        }
        above = runs;
    }
    const bool all = parts.size() == 1 && parts[0].left == 0 && parts[0].top == 0 &&
                     parts[0].right == picture.width() && parts[0].bottom == picture.height();
    return all ? std::nullopt : std::optional(std::move(parts));
}

} // namespace windowing

#include "drop_list_layout.h"

#include <windows.h>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kRowHeight = 24;     // at 96 DPI
constexpr int kBarWidth = 6;       // at 96 DPI
constexpr int kSmallestThumb = 20; // at 96 DPI
constexpr int kEdge = 2;           // pixels above and below the track

} // namespace

int DropListLayout::RowHeight() const {
    return MulDiv(kRowHeight, dpi, 96);
}

int DropListLayout::BarWidth() const {
    return MulDiv(kBarWidth, dpi, 96);
}

int DropListLayout::RowWidth() const {
    return HasScrollBar() ? width - (BarWidth() + 2) : width;
}

int DropListLayout::ListHeight() const {
    return Visible() * RowHeight() + 2;
}

int DropListLayout::ClampTop(int scrollTop) const {
    return std::clamp(scrollTop, 0, MaxTop());
}

int DropListLayout::OpeningTop(int selected) const {
    return ClampTop(selected >= Visible() ? selected - Visible() + 1 : 0);
}

int DropListLayout::TopShowing(int hot, int scrollTop) const {
    if (hot < scrollTop) {
        scrollTop = hot;
    }
    if (hot >= scrollTop + Visible()) {
        scrollTop = hot - Visible() + 1;
    }
    return ClampTop(scrollTop);
}

int DropListLayout::HitTest(int x, int y, int scrollTop) const {
    if (x < 0 || x > RowWidth() || y < 0 || y / RowHeight() >= Visible()) {
        return -1;
    }
    const int index = y / RowHeight() + scrollTop;
    return index < count ? index : -1;
}

bool DropListLayout::Contains(int x, int y) const {
    return x >= 0 && x < width && y >= 0 && y < height;
}

bool DropListLayout::IsOnScrollBar(int x) const {
    return HasScrollBar() && x >= width - BarWidth() - 1;
}

DropListLayout::Thumb DropListLayout::ThumbAt(int scrollTop) const {
    const auto track = static_cast<float>(height - 2 * kEdge);
    const auto smallest = static_cast<float>(dpi) * kSmallestThumb / 96.0F;
    const float share = static_cast<float>(Visible()) * track / static_cast<float>(count);
    const float thumb = std::max(share, smallest);
    float top = kEdge;
    if (HasScrollBar()) {
        top += (track - thumb) * static_cast<float>(scrollTop) / static_cast<float>(MaxTop());
    }
    return {top, thumb, track};
}

int DropListLayout::DraggedTop(int startTop, int startY, int y) const {
    const Thumb thumb = ThumbAt(startTop);
    const float travel = thumb.track - thumb.height;
    if (travel <= 0) {
        return startTop;
    }
    const int product = (y - startY) * MaxTop();
    // Half a row moves the list by one; trunc, not floor: upward drags round toward zero as well.
    const float rows = std::trunc(static_cast<float>(product) / travel + 0.5F);
    return ClampTop(static_cast<int>(rows) + startTop);
}

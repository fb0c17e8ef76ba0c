#include "painting/raster.h"

#include <utility>

namespace painting {

namespace {

QImage ViewOf(QImage& picture, const QRect& part) {
    constexpr int kPixelBytes = 4;
    uchar* first = picture.scanLine(part.top()) + qsizetype{part.left()} * kPixelBytes;
    return {first, part.width(), part.height(), picture.bytesPerLine(), picture.format()};
}

} // namespace

Raster::Raster(QImage picture) : own_(std::move(picture)), picture_(&own_), clip_(own_.rect()) {}

Raster::Raster(QImage* picture, QPoint origin, QRect clip)
    : picture_(picture), origin_(origin), clip_(clip) {}

QRect Raster::Part() const {
    return picture_ == nullptr ? QRect() : clip_.intersected(picture_->rect());
}

bool Raster::IsOpaque() const {
    return picture_ != &own_ || own_.format() == QImage::Format_RGB32;
}

void Raster::Forget() {
    if (painter_.isActive()) {
        painter_.end();
    }
    picture_ = nullptr;
}

void Raster::Enter() {
    ++users_;
}

void Raster::Leave() {
    if (--users_ == 0 && painter_.isActive()) {
        painter_.end();
    }
}

QPainter* Raster::PainterFor(const void* user, bool* changed) {
    const QRect part = Part();
    if (part.isEmpty()) {
        return nullptr;
    }
    if (!painter_.isActive()) {
        view_ = ViewOf(*picture_, part);
        if (!painter_.begin(&view_)) {
            return nullptr;
        }
        painter_.translate(origin_ - part.topLeft());
        user_ = nullptr;
    }
    *changed = std::exchange(user_, user) != user;
    return &painter_;
}

} // namespace painting

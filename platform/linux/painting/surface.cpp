#include "painting/surface.h"

#include <utility>

namespace painting {

Surface::Surface(QImage picture) : own_(std::move(picture)), picture_(&own_) {}

Surface::Surface(QImage* picture) : picture_(picture) {}

void Surface::Forget() {
    if (painter_.isActive()) {
        painter_.end();
    }
    picture_ = nullptr;
}

void Surface::Enter() {
    ++users_;
}

void Surface::Leave() {
    if (--users_ == 0 && painter_.isActive()) {
        painter_.end();
    }
}

QPainter* Surface::PainterFor(const void* user, bool* changed) {
    if (picture_ == nullptr || picture_->isNull()) {
        return nullptr;
    }
    if (!painter_.isActive()) {
        if (!painter_.begin(picture_)) {
            return nullptr;
        }
        user_ = nullptr;
    }
    *changed = std::exchange(user_, user) != user;
    return &painter_;
}

} // namespace painting

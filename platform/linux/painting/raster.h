// A picture and the one painter that it can have at a time, which all that draws on it shares.
// Knows nothing of handles.
#pragma once

#include <QImage>
#include <QPainter>
#include <QPoint>
#include <QRect>

namespace painting {

// Premultiplied ARGB, or RGB with 32 bits, which stays opaque. Used by the thread that has the
// windows.
class Raster {
public:
    explicit Raster(QImage picture);
    // `picture` is not owned, and outlives the raster or its Forget. Drawing at 0, 0 lands at
    // `origin`, and none lands outside `clip`.
    Raster(QImage* picture, QPoint origin, QRect clip);
    Raster(const Raster&) = delete;
    Raster& operator=(const Raster&) = delete;

    QImage* Picture() { return picture_; }
    QPoint Origin() const { return origin_; }
    // The part of the picture that is drawn on.
    QRect Part() const;
    // True when the alpha of its pixels is to be ignored.
    bool IsOpaque() const;
    // From now on there is no picture.
    void Forget();

    // The painter stays open while somebody uses the raster; what it has drawn is in the picture
    // at once. A user that leaves in between may leave the painter as it likes.
    void Enter();
    void Leave();
    // Null when there is nothing to draw on. `user` is set up anew, that is, `*changed` is true,
    // when somebody else had the painter.
    QPainter* PainterFor(const void* user, bool* changed);

private:
    QImage own_;
    QImage* picture_;
    const QPoint origin_;
    const QRect clip_;
    QImage view_; // of that part: it clips for free, and two rasters can share a picture
    QPainter painter_;
    const void* user_ = nullptr; // whose settings the painter has
    int users_ = 0;
};

} // namespace painting

// A picture and the one painter that it can have at a time, which all that draws on it shares.
// Knows nothing of handles.
#pragma once

#include <QImage>
#include <QPainter>

namespace painting {

// Premultiplied ARGB. Used by the thread that has the windows.
class Surface {
public:
    explicit Surface(QImage picture);
    // `picture` is not owned, and outlives the surface or its Forget.
    explicit Surface(QImage* picture);
    Surface(const Surface&) = delete;
    Surface& operator=(const Surface&) = delete;

    QImage* Picture() { return picture_; }
    // From now on there is no picture.
    void Forget();

    // The painter stays open while somebody uses the surface; what it has drawn is in the picture
    // at once. A user that leaves in between may leave the painter as it likes.
    void Enter();
    void Leave();
    // Null when there is no picture. `user` is set up anew, that is, `*changed` is true, when
    // somebody else had the painter.
    QPainter* PainterFor(const void* user, bool* changed);

private:
    QImage own_;
    QImage* picture_;
    QPainter painter_;
    const void* user_ = nullptr; // whose settings the painter has
    int users_ = 0;
};

} // namespace painting

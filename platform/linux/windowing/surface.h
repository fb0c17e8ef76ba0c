// What the user sees of a window, and where the user's input to it arrives: a top-level widget of
// Qt's that shows one picture. Knows its window by its handle.
#pragma once

#include "windowing/x11.h"

#include <windows.h>
#include <QImage>
#include <QWidget>

namespace windowing {

struct Window;

// Windows that take no activation are unmanaged: no window manager moves them or puts others above
// them. The rest are managed, so that they can have the keyboard.
class Surface final : public QWidget {
public:
    explicit Surface(const Window& window);

    void ShowOnTop(bool activate);
    void Raise(bool activate);
    void Place(const RECT& rect);
    void SetClickThrough(bool clickThrough);
    void SetPointerShape(Qt::CursorShape shape);
    // Has the pointer's input come here wherever the pointer is.
    void GrabPointer(bool grab);

    // Shows the picture, at once if the window shows. Without a compositor, what is less than half
    // opaque is left out.
    void Present(const QImage& picture, bool composited);
    // Premultiplied; null when there was none yet. Gives the picture away to be presented again, so
    // that its memory need not be had anew.
    QImage TakePicture();
    const QImage& Picture() const { return picture_; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void moveEvent(QMoveEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    bool focusNextPrevChild(bool next) override; // the keyboard goes where windows put it
    void TellWindowOfMove();
    void ApplyRegions();

    const HWND window_;
    const bool managed_;
    bool clickThrough_;
    QImage picture_;
    Region solid_; // where the picture is at all
    bool composited_ = true;
    Region inputRegion_; // as the server has them
    Region boundingRegion_;
};

} // namespace windowing

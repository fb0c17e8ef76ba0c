#include "windowing/surface.h"

#include "windowing/input_queue.h"
#include "windowing/pixels.h"
#include "windowing/placement.h"
#include "windowing/qt_input.h"
#include "windowing/window.h"

#include <QCloseEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QWheelEvent>

#include <algorithm>
#include <utility>

namespace windowing {

namespace {

constexpr unsigned kHalfOpaque = 128;

bool IsManaged(const Window& window) {
    return (window.exStyle & WS_EX_NOACTIVATE) == 0;
}

// Only what bypasses the window manager stands exactly where it is put, partly outside the screen
// too, and stays above windows that fill the screen.
Qt::WindowFlags FlagsFor(const Window& window) {
    Qt::WindowFlags flags = Qt::Tool | Qt::FramelessWindowHint | Qt::NoDropShadowWindowHint;
    if ((window.exStyle & WS_EX_TOPMOST) != 0) {
        flags |= Qt::WindowStaysOnTopHint;
    }
    if (!IsManaged(window)) {
        flags |= Qt::WindowDoesNotAcceptFocus | Qt::BypassWindowManagerHint;
    }
    return flags;
}

bool Same(const RECT& one, const RECT& other) {
    return one.left == other.left && one.top == other.top && one.right == other.right &&
           one.bottom == other.bottom;
}

bool Same(const Region& one, const Region& other) {
    if (!one.has_value() || !other.has_value()) {
        return one.has_value() == other.has_value();
    }
    return std::equal(one->begin(), one->end(), other->begin(), other->end(),
                      [](const RECT& a, const RECT& b) { return Same(a, b); });
}

} // namespace

Surface::Surface(const Window& window)
    : QWidget(nullptr, FlagsFor(window)), window_(window.handle), managed_(IsManaged(window)),
      clickThrough_(window.ClickThrough()) {
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_NoSystemBackground);
    setAttribute(Qt::WA_QuitOnClose, false);
    setMouseTracking(true);
    setWindowTitle(QString::fromStdU16String(window.title));
    Place(window.rect);
}

void Surface::ShowOnTop(bool activate) {
    setAttribute(Qt::WA_ShowWithoutActivating, !activate || !managed_);
    winId(); // so that the regions are there before the window shows
    ApplyRegions();
    show();
    Raise(activate);
}

void Surface::Raise(bool activate) {
    if (!OnX11()) {
        return; // nothing lies above anything there
    }
    raise();
    if (activate && managed_) {
        activateWindow();
    }
}

void Surface::Place(const RECT& rect) {
    setGeometry(rect.left, rect.top, std::max(rect.right - rect.left, 1),
                std::max(rect.bottom - rect.top, 1));
}

void Surface::SetClickThrough(bool clickThrough) {
    clickThrough_ = clickThrough;
    ApplyRegions();
}

void Surface::SetPointerShape(Qt::CursorShape shape) {
    if (cursor().shape() != shape) {
        setCursor(shape);
    }
}

void Surface::GrabPointer(bool grab) {
    if (!OnX11()) {
        return; // input is only injected there
    }
    if (grab) {
        grabMouse();
    } else if (mouseGrabber() == this) {
        releaseMouse();
    }
}

void Surface::Present(const QImage& picture, bool composited) {
    picture_ = picture;
    composited_ = composited;
    solid_ = PartsOfAlpha(picture_, composited ? 1 : kHalfOpaque);
    ApplyRegions();
    if (isVisible()) {
        repaint();
    }
}

QImage Surface::TakePicture() {
    return std::exchange(picture_, QImage());
}

// Through what is not there one clicks, as through the whole of a transparent window. A shape of
// the window itself would cut the smooth edges off, and serves only where nothing blends them.
void Surface::ApplyRegions() {
    if (internalWinId() == 0) {
        return;
    }
    const Region input = clickThrough_ ? Region(std::in_place) : solid_;
    if (!Same(input, inputRegion_)) {
        SetInputRegion(internalWinId(), input);
        inputRegion_ = input;
    }
    const Region bounding = composited_ ? Region() : solid_;
    if (!Same(bounding, boundingRegion_)) {
        SetBoundingRegion(internalWinId(), bounding);
        boundingRegion_ = bounding;
    }
}

void Surface::paintEvent(QPaintEvent* event) {
    QPainter painter(this);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    const QRect part = event->rect().intersected(picture_.rect());
    painter.drawImage(part.topLeft(), picture_, part);
}

// Without a window manager nobody else gives a window the keyboard that is clicked on.
void Surface::mousePressEvent(QMouseEvent* event) {
    if (managed_ && !isActiveWindow()) {
        activateWindow();
    }
    ReportPress(window_, *event);
}

void Surface::mouseReleaseEvent(QMouseEvent* event) {
    ReportRelease(window_, *event);
}

void Surface::mouseDoubleClickEvent(QMouseEvent* event) {
    ReportSecondPress(window_, *event);
}

void Surface::mouseMoveEvent(QMouseEvent* event) {
    ReportMove(window_, *event);
}

void Surface::wheelEvent(QWheelEvent* event) {
    ReportWheel(window_, *event);
    event->accept();
}

void Surface::leaveEvent(QEvent* /*event*/) {
    ReportLeave(window_);
}

void Surface::keyPressEvent(QKeyEvent* event) {
    ReportKey(window_, *event, true);
}

void Surface::keyReleaseEvent(QKeyEvent* event) {
    ReportKey(window_, *event, false);
}

bool Surface::focusNextPrevChild(bool /*next*/) {
    return false;
}

void Surface::changeEvent(QEvent* event) {
    if (event->type() == QEvent::ActivationChange && managed_ && OnX11()) {
        PutActivation({window_, isActiveWindow()});
    }
    QWidget::changeEvent(event);
}

// The window manager only asks; what becomes of it is the window's business.
void Surface::closeEvent(QCloseEvent* event) {
    event->ignore();
    PostMessageW(window_, WM_CLOSE, 0, 0);
}

void Surface::moveEvent(QMoveEvent* /*event*/) {
    TellWindowOfMove();
}

void Surface::resizeEvent(QResizeEvent* /*event*/) {
    TellWindowOfMove();
}

// An unmanaged window stands where it was put; what is reported of it may be out of date by now.
void Surface::TellWindowOfMove() {
    const auto window = Find(window_);
    if (!managed_ || window == nullptr || !window->visible) {
        return;
    }
    const QRect now = geometry();
    Moved(*window, {now.left(), now.top(), now.left() + now.width(), now.top() + now.height()});
}

} // namespace windowing

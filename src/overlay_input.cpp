// The pointer on the overlay: one left button that presses toolbar buttons, scrolls, resizes and
// moves the window, and the tooltip. Asks the last paint's geometry where things are.
#include "dpi.h"
#include "overlay_window.h"
#include "stored_values.h"
#include "theme.h"

#include <algorithm>
#include <cmath>

using namespace Gdiplus;

namespace {

constexpr int kResizeEdge = 6;   // at 96 DPI
constexpr int kWheelDivisor = 3; // of the wheel's delta: a notch of 120 moves 40 pixels

constexpr ARGB kTooltipFill = 0xFF1E1E2E;
constexpr ARGB kTooltipOutline = 0x64FFFFFF;
constexpr ARGB kTooltipText = 0xFFE1E1E1;

POINT PointerIn(HWND window) {
    POINT point{};
    GetCursorPos(&point);
    ScreenToClient(window, &point);
    return point;
}

FontOwner TooltipFont() {
    return MakeFont(theme::kTextFamily, 9.0F, FontStyleRegular);
}

} // namespace

// ---- Pressing and releasing ---------------------------------------------------------------------

void OverlayWindow::OnLeftButtonDown(int x, int y) {
    if (IsOnResizeEdge(y)) {
        resizing_ = true;
        resizeStartHeight_ = windowHeight_;
        resizeStartY_ = y;
        SetCapture(hwnd_);
        return;
    }
    if (PressScrollBar(x, y)) {
        return;
    }
    if (const int id = HitTestToolbar(x, y); id != kNoButton) {
        pressedButton_ = id;
        SetCapture(hwnd_);
        RepaintToolbar();
        return;
    }
    POINT point{x, y};
    ClientToScreen(hwnd_, &point);
    RECT window;
    GetWindowRect(hwnd_, &window);
    dragging_ = true;
    dragOffset_ = {point.x - window.left, point.y - window.top};
    SetCapture(hwnd_);
}

// On the thumb a drag begins; beside it the view moves by a page. False outside the scroll bar.
bool OverlayWindow::PressScrollBar(int x, int y) {
    if (contentHeight_ <= static_cast<float>(captionHeight_) || x < scrollHitX_ ||
        y < captionTop_ || y > captionTop_ + captionHeight_) {
        return false;
    }
    const auto pointer = static_cast<float>(y);
    if (pointer >= thumbTop_ && pointer <= thumbTop_ + thumbHeight_) {
        thumbDragStartOffset_ = scrollOffset_;
        thumbDragging_ = true;
        thumbDragStartY_ = y;
        SetCapture(hwnd_);
        return true;
    }
    ScrollTo(scrollOffset_ + (pointer < thumbTop_ ? -captionHeight_ : captionHeight_));
    return true;
}

void OverlayWindow::OnLeftButtonUp() {
    if (resizing_ || thumbDragging_) {
        resizing_ = false;
        thumbDragging_ = false;
        ReleaseCapture();
        Repaint();
    } else if (dragging_) {
        dragging_ = false;
        ReleaseCapture();
    } else if (pressedButton_ != kNoButton) {
        const int pressed = pressedButton_;
        pressedButton_ = kNoButton;
        ReleaseCapture();
        RepaintToolbar();
        const POINT pointer = PointerIn(hwnd_);
        if (HitTestToolbar(pointer.x, pointer.y) == pressed) {
            OnToolbarCommand(pressed);
        }
    } else {
        ReleaseCapture();
    }
}

void OverlayWindow::OnCaptureChanged() {
    thumbDragging_ = false;
    dragging_ = false;
    resizing_ = false;
    pressedButton_ = kNoButton;
}

// ---- Moving -------------------------------------------------------------------------------------

void OverlayWindow::OnMouseMove(int x, int y, WPARAM keys) {
    if (!mouseTracked_) {
        TRACKMOUSEEVENT tracking{sizeof tracking, TME_LEAVE, hwnd_, 0};
        TrackMouseEvent(&tracking);
        mouseTracked_ = true;
    }
    const bool held = (keys & MK_LBUTTON) != 0;
    if (held && resizing_) {
        DragResize(y);
    } else if (held && thumbDragging_) {
        DragThumb(y);
    } else if (held && dragging_) {
        DragWindow(x, y);
    } else {
        Hover(x, y);
    }
}

void OverlayWindow::DragResize(int y) {
    const int height = std::max(resizeStartHeight_ - resizeStartY_ + y, S(kSmallestOverlayHeight));
    if (height == windowHeight_) {
        return;
    }
    windowHeight_ = height;
    RECT window;
    GetWindowRect(hwnd_, &window);
    SetWindowPos(hwnd_, nullptr, window.left, window.top, window.right - window.left, height,
                 SWP_NOZORDER | SWP_NOACTIVATE);
    WriteStoredNumber(configKey_.get(), stored::kWindowHeight, static_cast<DWORD>(height));
    if (popup_->IsVisible()) {
        popup_->Reposition();
    }
    Repaint();
}

void OverlayWindow::DragThumb(int y) {
    const int maxOffset = MaxScrollOffset();
    if (maxOffset == 0 || trackHeight_ <= thumbHeight_) {
        return;
    }
    const float moved = static_cast<float>(maxOffset) / (trackHeight_ - thumbHeight_) *
                        static_cast<float>(y - thumbDragStartY_);
    ScrollTo(thumbDragStartOffset_ + static_cast<int>(moved));
}

void OverlayWindow::DragWindow(int x, int y) {
    POINT point{x, y};
    ClientToScreen(hwnd_, &point);
    SetWindowPos(hwnd_, nullptr, point.x - dragOffset_.x, point.y - dragOffset_.y, 0, 0,
                 SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    if (popup_->IsVisible()) {
        popup_->Reposition();
    }
}

void OverlayWindow::Hover(int x, int y) {
    const int id = y <= S(kHeaderHeight) ? HitTestToolbar(x, y) : kNoButton;
    if (id == hoverButton_ && pressedButton_ == kNoButton) {
        return;
    }
    if (id != hoverButton_) {
        ShowTooltip(id);
    }
    hoverButton_ = id;
    RepaintToolbar();
}

void OverlayWindow::OnMouseLeave() {
    mouseTracked_ = false;
    const bool shown = hoverButton_ != kNoButton || pressedButton_ != kNoButton;
    hoverButton_ = kNoButton;
    if (tooltip_) {
        ShowWindow(tooltip_.get(), SW_HIDE);
    }
    if (pressedButton_ != kNoButton) {
        pressedButton_ = kNoButton;
        ReleaseCapture();
    }
    if (shown) {
        RepaintToolbar();
    }
}

void OverlayWindow::OnMouseWheel(int delta) {
    ScrollTo(scrollOffset_ - delta / kWheelDivisor);
}

// The view leaves the newest caption, or comes back to it.
void OverlayWindow::ScrollTo(int offset) {
    const int maxOffset = MaxScrollOffset();
    scrollOffset_ = std::clamp(offset, 0, maxOffset);
    scrolledUp_ = scrollOffset_ < maxOffset;
    Repaint();
}

// ---- What is where ------------------------------------------------------------------------------

int OverlayWindow::HitTestToolbar(int x, int y) const {
    return HitTestButtons(buttonRects_, x, y);
}

// The whole width, the client's bottom itself included: a captured pointer may be there.
bool OverlayWindow::IsOnResizeEdge(int y) const {
    RECT client;
    GetClientRect(hwnd_, &client);
    return y >= client.bottom - S(kResizeEdge) && y <= client.bottom;
}

bool OverlayWindow::ShowResizeCursor() const {
    if (!IsOnResizeEdge(PointerIn(hwnd_).y)) {
        return false;
    }
    SetCursor(LoadCursorW(nullptr, IDC_SIZENS));
    return true;
}

// ---- The tooltip --------------------------------------------------------------------------------

// Above its button, at once; hidden for no button.
void OverlayWindow::ShowTooltip(int id) {
    if (!tooltip_) {
        return;
    }
    const WCHAR* text = ToolbarTooltip(id);
    if (text == nullptr) {
        ShowWindow(tooltip_.get(), SW_HIDE);
        return;
    }
    const auto button = std::find_if(buttonRects_.begin(), buttonRects_.end(),
                                     [id](const ToolbarRect& rect) { return rect.id == id; });
    if (button == buttonRects_.end()) {
        return;
    }
    POINT topLeft{button->left, button->top};
    POINT bottomRight{button->right, button->bottom};
    ClientToScreen(hwnd_, &topLeft);
    ClientToScreen(hwnd_, &bottomRight);

    const ScreenContext screen;
    const RectF box =
        MeasureText(GraphicsOn(screen.get()).get(), text, {0, 0, 400, 40}, TooltipFont().get(),
                    MakeTextFormat(StringAlignmentCenter, StringAlignmentCenter).get());

    const int width = static_cast<int>(std::ceil(box.Width)) + 16;
    const int height = static_cast<int>(std::ceil(box.Height)) + 6;
    const int centre = (topLeft.x + bottomRight.x) / 2;
    SetWindowPos(tooltip_.get(), HWND_TOPMOST, centre - width / 2, topLeft.y - height - 10, width,
                 height, SWP_NOACTIVATE | SWP_SHOWWINDOW);
    PaintTooltip(text, width, height);
}

void OverlayWindow::PaintTooltip(const WCHAR* text, int width, int height) const {
    const Canvas canvas(width, height);
    GpGraphics* graphics = canvas.Graphics();
    const RectF area(0, 0, static_cast<float>(width), static_cast<float>(height));
    const PathOwner shape = MakeRoundedRect(area, 4.0F);
    Gdiplus::DllExports::GdipFillPath(graphics, MakeBrush(kTooltipFill).get(), shape.get());
    Gdiplus::DllExports::GdipDrawPath(graphics, MakePen(kTooltipOutline, 1.0F).get(), shape.get());
    const FormatOwner centred = MakeTextFormat(StringAlignmentCenter, StringAlignmentCenter);
    DrawTextIn(graphics, text, TooltipFont().get(), kTooltipText, area, centred.get());
    canvas.PushTo(tooltip_.get(), 255);
}

// The drop-down list's behaviour: opening and closing, pointer, wheel and keys.
#include "drop_list.h"

#include "dpi.h"
#include "window_class.h"
#include "window_messages.h"
#include "windows_additions.h"

#include <commctrl.h>

#include <algorithm>

DropList::DropList(HWND parent, int x, int y, int w, int h, int id)
    : parent_(parent), id_(id), x_(x), y_(y), w_(w), h_(h) {
    RegisterClassOnce(kListClass, ListProcedure,
                      [](WNDCLASSEXW& list) { list.hCursor = LoadCursorW(nullptr, IDC_ARROW); });
    button_ =
        CreateWindowExW(0, TEXT("BUTTON"), TEXT(""), WS_CHILD | WS_VISIBLE | BS_OWNERDRAW, x, y, w,
                        h, parent, ControlNumber(id), GetModuleHandleW(nullptr), nullptr);
    SetWindowSubclass(button_, ButtonProcedure, static_cast<UINT_PTR>(id),
                      reinterpret_cast<DWORD_PTR>(this));
}

DropList::~DropList() {
    CloseList();
    DestroyWindow(button_);
}

void DropList::Clear() {
    items_.clear();
    selected_ = -1;
    scrollTop_ = 0;
    InvalidateButton();
}

void DropList::SetEnabled(bool enabled) {
    enabled_ = enabled;
    EnableWindow(button_, enabled);
    InvalidateButton();
    if (!enabled) {
        CloseList();
    }
}

void DropList::SetFont(HFONT font) {
    font_ = font;
    SendMessageW(button_, WM_SETFONT, reinterpret_cast<WPARAM>(font), TRUE);
}

DropListLayout DropList::Layout() const {
    RECT client{};
    if (listWnd_ != nullptr) {
        GetClientRect(listWnd_, &client);
    }
    return {static_cast<int>(items_.size()), client.right, client.bottom, DpiScale};
}

bool DropList::HasSelection() const {
    return selected_ >= 0 && static_cast<std::size_t>(selected_) < items_.size();
}

void DropList::InvalidateButton() const {
    InvalidateRect(button_, nullptr, FALSE);
}

void DropList::InvalidateList() const {
    InvalidateRect(listWnd_, nullptr, FALSE);
}

// ---- Opening and closing ------------------------------------------------------------------------

void DropList::OpenList() {
    if (open_ || items_.empty()) {
        return;
    }
    POINT corner{x_, y_ + h_};
    ClientToScreen(parent_, &corner);
    const DropListLayout layout = Layout();
    scrollTop_ = layout.OpeningTop(selected_);
    hot_ = selected_;
    listWnd_ = CreateWindowExW(WS_EX_TOPMOST | WS_EX_NOACTIVATE, kListClass, TEXT(""), WS_POPUP,
                               corner.x, corner.y, w_, layout.ListHeight(), parent_, nullptr,
                               GetModuleHandleW(nullptr), this);
    DwmSetWindowAttribute(listWnd_, kWindowCornerPreference, &kRoundCorners, sizeof kRoundCorners);
    open_ = true;
    ShowWindow(listWnd_, SW_SHOWNA);
    UpdateWindow(listWnd_);
    SetCapture(listWnd_);
    InvalidateButton();
}

void DropList::CloseList() {
    if (!open_) {
        return;
    }
    if (GetCapture() == listWnd_) {
        ReleaseCapture();
    }
    DestroyWindow(listWnd_);
    listWnd_ = nullptr;
    open_ = false;
    hot_ = -1;
    draggingThumb_ = false;
    InvalidateButton();
}

// Closes the list with a choice, or without one when no entry has the index. The choice is made
// before the parent hears of it, and the list is gone by then.
void DropList::Choose(int index) {
    CloseList();
    if (index >= 0 && static_cast<std::size_t>(index) < items_.size()) {
        selected_ = index;
        SendMessageW(parent_, WM_COMMAND, MAKEWPARAM(id_, CBN_SELCHANGE),
                     reinterpret_cast<LPARAM>(button_));
    }
}

// ---- The button ---------------------------------------------------------------------------------

LRESULT CALLBACK DropList::ButtonProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam,
                                           UINT_PTR id, DWORD_PTR list) {
    if (message == WM_DESTROY) {
        RemoveWindowSubclass(window, ButtonProcedure, id);
    } else if (reinterpret_cast<DropList*>(list)->HandleButton(message, wParam)) {
        return 0;
    }
    return DefSubclassProc(window, message, wParam, lParam);
}

// Whether the message ends here. The button's own press handling must not run: it would take the
// keyboard from the field that the user types in.
bool DropList::HandleButton(UINT message, WPARAM wParam) {
    switch (message) {
    case WM_MOUSEMOVE:
        if (!hover_) {
            TRACKMOUSEEVENT tracking{sizeof tracking, TME_LEAVE, button_, 0};
            TrackMouseEvent(&tracking);
            hover_ = true;
            InvalidateButton();
        }
        return true;
    case WM_MOUSELEAVE:
        hover_ = false;
        pressed_ = false;
        InvalidateButton();
        return true;
    case WM_LBUTTONDOWN:
        if (enabled_) {
            pressed_ = true;
            InvalidateButton();
        }
        return true;
    case WM_LBUTTONUP:
        if (enabled_) {
            ReleaseButton();
        }
        return true;
    case WM_KEYDOWN:
        return enabled_ && HandleButtonKey(wParam);
    default:
        return false;
    }
}

void DropList::ReleaseButton() {
    if (pressed_) {
        pressed_ = false;
        if (open_) {
            CloseList();
        } else {
            OpenList();
        }
    }
    InvalidateButton();
}

bool DropList::HandleButtonKey(WPARAM key) {
    switch (key) {
    case VK_RETURN:
    case VK_SPACE:
    case VK_DOWN:
        OpenList();
        return true;
    case VK_ESCAPE:
        CloseList();
        return true;
    default:
        return false;
    }
}

// ---- The open list ------------------------------------------------------------------------------

LRESULT CALLBACK DropList::ListProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* const list = ObjectOf<DropList>(window, message, lParam);
    return list != nullptr ? list->HandleList(window, message, wParam, lParam)
                           : DefWindowProcW(window, message, wParam, lParam);
}

LRESULT DropList::HandleList(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_LBUTTONDOWN:
        OnListPress(wParam, PointOf(lParam));
        return 0;
    case WM_LBUTTONUP:
        if (draggingThumb_) {
            draggingThumb_ = false;
            InvalidateList();
        }
        return 0;
    case WM_MOUSEMOVE:
        OnListMove(PointOf(lParam));
        return 0;
    case WM_MOUSEWHEEL:
        OnListWheel(SignedHigh(static_cast<std::intptr_t>(wParam)));
        return 0;
    case WM_KEYDOWN:
        OnListKey(wParam);
        return 0;
    case WM_PAINT:
        PaintList();
        return 0;
    case WM_ERASEBKGND:
        return 1; // each paint covers everything
    case WM_DESTROY:
        if (listWnd_ == window) {
            listWnd_ = nullptr;
        }
        return 0;
    default:
        return DefWindowProcW(window, message, wParam, lParam);
    }
}

int DropList::HitTest(POINT point) const {
    return open_ ? Layout().HitTest(point.x, point.y, scrollTop_) : -1;
}

void DropList::SetHot(int index) {
    if (index != hot_) {
        hot_ = index;
        InvalidateList();
    }
}

void DropList::SetScrollTop(int scrollTop) {
    if (scrollTop != scrollTop_) {
        scrollTop_ = scrollTop;
        InvalidateList();
    }
}

void DropList::OnListPress(WPARAM keys, POINT point) {
    const DropListLayout layout = Layout();
    if (!layout.Contains(point.x, point.y)) {
        ClientToScreen(listWnd_, &point); // as long as there is a list to convert from
        CloseList();
        PassPressOn(keys, point);
        return;
    }
    if (layout.IsOnScrollBar(point.x)) {
        PressScrollBar(point.y);
        return;
    }
    if (const int index = HitTest(point); index >= 0) {
        Choose(index);
    }
}

// A press beside the list does what it would have done without the list. Only the list's own button
// does not get it, as its release would open the list again.
void DropList::PassPressOn(WPARAM keys, POINT screenPoint) const {
    HWND target = WindowFromPoint(screenPoint);
    if (target == nullptr || target == button_) {
        return;
    }
    ScreenToClient(target, &screenPoint);
    PostMessageW(target, WM_LBUTTONDOWN, keys, MAKELPARAM(screenPoint.x, screenPoint.y));
}

// On the thumb a drag begins; beside it the list moves by a page.
void DropList::PressScrollBar(int y) {
    const DropListLayout layout = Layout();
    const DropListLayout::Thumb thumb = layout.ThumbAt(scrollTop_);
    const int top = static_cast<int>(thumb.top);
    const int bottom = top + static_cast<int>(thumb.height);
    if (y >= top && y <= bottom) {
        dragStartTop_ = scrollTop_;
        draggingThumb_ = true;
        dragStartY_ = y;
        return;
    }
    const int page = y < top ? -layout.Visible() : layout.Visible();
    scrollTop_ = layout.ClampTop(scrollTop_ + page);
    InvalidateList();
}

void DropList::OnListMove(POINT point) {
    const DropListLayout layout = Layout();
    if (draggingThumb_) {
        SetScrollTop(layout.DraggedTop(dragStartTop_, dragStartY_, point.y));
        return;
    }
    SetHot(layout.Contains(point.x, point.y) ? HitTest(point) : -1);
}

void DropList::OnListWheel(int delta) {
    const int scrollTop = Layout().ClampTop(scrollTop_ + (delta > 0 ? -1 : 1));
    if (scrollTop == scrollTop_) {
        return;
    }
    scrollTop_ = scrollTop;
    POINT pointer{};
    GetCursorPos(&pointer);
    ScreenToClient(listWnd_, &pointer);
    hot_ = HitTest(pointer);
    InvalidateList();
}

void DropList::OnListKey(WPARAM key) {
    const int last = static_cast<int>(items_.size()) - 1;
    switch (key) {
    case VK_RETURN:
        Choose(hot_);
        return;
    case VK_ESCAPE:
        CloseList();
        return;
    case VK_UP:
        if (hot_ < 1) {
            return;
        }
        --hot_;
        break;
    case VK_DOWN:
        if (hot_ >= last) {
            return;
        }
        ++hot_;
        break;
    default:
        return;
    }
    scrollTop_ = Layout().TopShowing(hot_, scrollTop_);
    InvalidateList();
}

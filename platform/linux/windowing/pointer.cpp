#include "windowing/pointer.h"

#include "application/application.h"
#include "windowing/icons.h"
#include "windowing/surface.h"
#include "windowing/window.h"

#include <algorithm>
#include <deque>
#include <memory>
#include <utility>

#include <QCursor>

namespace windowing {

namespace {

struct Pointer {
    std::deque<PointerInput> inputs;
    POINT onScreen{};    // last heard of
    HWND over = nullptr; // the window that got the last mouse message, and so has the cursor
    HWND captured = nullptr;
    HCURSOR cursor = nullptr;
};

Pointer& ThePointer() {
    static Pointer& pointer = *std::make_unique<Pointer>().release();
    return pointer;
}

bool IsPress(UINT message) {
    return message == WM_LBUTTONDOWN || message == WM_RBUTTONDOWN;
}

// Buttons held over one window keep the pointer with it as far as X11 is concerned; without a
// capture, though, what happens elsewhere is none of its business.
std::shared_ptr<Window> WindowAt(POINT onScreen, HWND preferred) {
    const auto shows = [&](const Window& window) {
        return window.visible && !window.ClickThrough() && Contains(window.rect, onScreen);
    };
    std::shared_ptr<Window> first = Find(preferred);
    if (first != nullptr && shows(*first)) {
        return first;
    }
    const auto windows = AllWindows();
    const auto found = std::find_if(windows.rbegin(), windows.rend(),
                                    [&](const auto& window) { return shows(*window); });
    return found == windows.rend() ? nullptr : *found;
}

std::shared_ptr<Window> TargetOf(const PointerInput& input) {
    const HWND captured = ThePointer().captured;
    if (input.message == WM_MOUSELEAVE) {
        const std::shared_ptr<Window> left = Find(input.source);
        return left != nullptr && left->leaveWanted && captured != input.source ? left : nullptr;
    }
    return captured != nullptr ? Find(captured) : WindowAt(input.onScreen, input.source);
}

LPARAM PointOf(const PointerInput& input, const Window& window) {
    if (input.message == WM_MOUSELEAVE) {
        return 0;
    }
    if (input.message == WM_MOUSEWHEEL) {
        return MAKELPARAM(input.onScreen.x, input.onScreen.y);
    }
    return MAKELPARAM(input.onScreen.x - window.rect.left, input.onScreen.y - window.rect.top);
}

UINT MessageOf(const PointerInput& input, const Window& window) {
    const bool doubled = input.secondPress && IsPress(input.message) &&
                         (window.windowClass->style & CS_DBLCLKS) != 0;
    return doubled ? input.message + (WM_LBUTTONDBLCLK - WM_LBUTTONDOWN) : input.message;
}

WPARAM KeysOf(const PointerInput& input) {
    return input.message == WM_MOUSEWHEEL ? MAKEWPARAM(input.keys, input.wheelDelta) : input.keys;
}

void AskForCursor(Window& window, UINT message) {
    ThePointer().over = window.handle;
    if (ThePointer().captured == nullptr) {
        Send(window, WM_SETCURSOR, reinterpret_cast<WPARAM>(window.handle),
             MAKELPARAM(HTCLIENT, message));
    }
}

// A pointer that left while it was captured is told of at the end of the capture.
void LeaveIfOutside(HWND handle) {
    const std::shared_ptr<Window> window = Find(handle);
    const POINT onScreen = LastPointerPosition();
    if (window != nullptr && window->leaveWanted && !Contains(window->rect, onScreen)) {
        PutPointerInput({handle, WM_MOUSELEAVE, 0, 0, onScreen, false, MessageTimeMs()});
    }
}

// Moves the capture to `next`, null for none, and tells the one that loses it.
void MoveCapture(HWND next) {
    const HWND previous = std::exchange(ThePointer().captured, next);
    if (previous == next) {
        return;
    }
    const std::shared_ptr<Window> loser = Find(previous);
    if (loser == nullptr) {
        return;
    }
    loser->surface->GrabPointer(false);
    Send(*loser, WM_CAPTURECHANGED, 0, reinterpret_cast<LPARAM>(next));
    LeaveIfOutside(previous);
}

} // namespace

void PutPointerInput(const PointerInput& input) {
    Pointer& pointer = ThePointer();
    if (input.message != WM_MOUSELEAVE) {
        pointer.onScreen = input.onScreen;
    }
    auto& inputs = pointer.inputs;
    const bool sameMove = !inputs.empty() && input.message == WM_MOUSEMOVE &&
                          inputs.back().message == WM_MOUSEMOVE &&
                          inputs.back().source == input.source && inputs.back().keys == input.keys;
    if (sameMove) {
        inputs.back() = input;
    } else {
        inputs.push_back(input);
    }
}

std::optional<MSG> TakePointerInput(const MessageFilter& filter, bool remove) {
    auto& inputs = ThePointer().inputs;
    for (auto input = inputs.begin(); input != inputs.end();) {
        const std::shared_ptr<Window> window = TargetOf(*input);
        if (window == nullptr) {
            input = inputs.erase(input);
            continue;
        }
        const UINT message = MessageOf(*input, *window);
        if (!filter.Takes(window->handle, message)) {
            ++input;
            continue;
        }
        const MSG taken{window->handle,           message,       KeysOf(*input),
                        PointOf(*input, *window), input->timeMs, input->onScreen};
        if (!remove) {
            return taken;
        }
        inputs.erase(input);
        if (message == WM_MOUSELEAVE) {
            window->leaveWanted = false;
        } else {
            AskForCursor(*window, message);
        }
        return taken;
    }
    return std::nullopt;
}

POINT LastPointerPosition() {
    return ThePointer().onScreen;
}

void DropCaptureOf(HWND window) {
    if (ThePointer().captured == window) {
        MoveCapture(nullptr);
    }
}

} // namespace windowing

using windowing::Find;
using windowing::ThePointer;
using windowing::Window;

HWND SetCapture(HWND handle) {
    const HWND previous = ThePointer().captured;
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr) {
        return nullptr;
    }
    windowing::MoveCapture(handle);
    if (ThePointer().captured == handle && window->visible) {
        window->surface->GrabPointer(true);
    }
    return previous;
}

BOOL ReleaseCapture() {
    windowing::MoveCapture(nullptr);
    return TRUE;
}

HWND GetCapture() {
    return ThePointer().captured;
}

BOOL TrackMouseEvent(LPTRACKMOUSEEVENT track) {
    if (track == nullptr || track->cbSize != sizeof(TRACKMOUSEEVENT) ||
        track->dwFlags != TME_LEAVE) {
        return FALSE;
    }
    const std::shared_ptr<Window> window = Find(track->hwndTrack);
    if (window == nullptr) {
        return FALSE;
    }
    window->leaveWanted = true;
    return TRUE;
}

BOOL GetCursorPos(LPPOINT point) {
    if (point == nullptr || application::Instance() == nullptr) {
        return FALSE;
    }
    const QPoint position = QCursor::pos();
    *point = {position.x(), position.y()};
    return TRUE;
}

HCURSOR SetCursor(HCURSOR cursor) {
    const HCURSOR previous = std::exchange(ThePointer().cursor, cursor);
    const std::shared_ptr<Window> window = Find(ThePointer().over);
    if (window != nullptr) {
        window->surface->SetPointerShape(windowing::ShapeOf(cursor));
    }
    return previous;
}

#include "windowing/pointer.h"

#include "application/application.h"
#include "windowing/hit_test.h"
#include "windowing/icons.h"
#include "windowing/input_queue.h"
#include "windowing/surface.h"
#include "windowing/window_table.h"

#include <QCursor>

#include <memory>
#include <utility>

namespace windowing {

namespace {

struct Pointer {
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
    return message == WM_LBUTTONDOWN || message == WM_RBUTTONDOWN || message == WM_MBUTTONDOWN;
}

// The one that has the capture gets what the user does, wherever that is. Without a capture what
// happens outside of a window is none of its business, though X11 leaves the pointer with the
// window over which a button went down.
std::shared_ptr<Window> TargetOf(const PointerInput& input) {
    const HWND captured = ThePointer().captured;
    if (input.message == WM_MOUSELEAVE) {
        // The system tells of top-level windows alone; the pointer may have been in a child.
        const HWND over = ThePointer().over;
        const bool wasInChild = over != nullptr && IsWithin(over, input.source);
        const std::shared_ptr<Window> left = Find(wasInChild ? over : input.source);
        return left != nullptr && left->leaveWanted && captured != left->handle ? left : nullptr;
    }
    return captured != nullptr ? Find(captured) : WindowAt(input.onScreen, input.source);
}

// The pointer has gone from one window to another, and the first has asked to be told.
std::shared_ptr<Window> LeftFor(const Window& next) {
    const Pointer& pointer = ThePointer();
    if (pointer.captured != nullptr || pointer.over == next.handle) {
        return nullptr;
    }
    const std::shared_ptr<Window> left = Find(pointer.over);
    return left != nullptr && left->leaveWanted ? left : nullptr;
}

MSG LeaveMessage(const Window& left, const PointerInput& input) {
    return {left.handle, WM_MOUSELEAVE, 0, 0, input.timeMs, LastPointerPosition()};
}

LPARAM PointOf(const PointerInput& input, const Window& window) {
    const POINT origin = input.message == WM_MOUSEWHEEL ? POINT{0, 0} : OriginOnScreen(window);
    return MAKELPARAM(input.onScreen.x - origin.x, input.onScreen.y - origin.y);
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
    if (window == nullptr || !window->leaveWanted) {
        return;
    }
    const auto under = WindowAt(onScreen, TopLevelOf(*window).handle);
    if (under == nullptr || under->handle != handle) {
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
    SurfaceOf(*loser).GrabPointer(false);
    Send(*loser, WM_CAPTURECHANGED, 0, reinterpret_cast<LPARAM>(next));
    LeaveIfOutside(previous);
}

} // namespace

std::optional<MSG> MessageFor(const PointerInput& input) {
    const std::shared_ptr<Window> window = TargetOf(input);
    if (window == nullptr) {
        return std::nullopt;
    }
    if (input.message == WM_MOUSELEAVE) {
        return LeaveMessage(*window, input);
    }
    if (const auto left = LeftFor(*window)) {
        return LeaveMessage(*left, input);
    }
    return MSG{window->handle, MessageOf(input, *window),
               KeysOf(input),  PointOf(input, *window),
               input.timeMs,   input.onScreen};
}

void PointerMessageFetched(const MSG& message) {
    const std::shared_ptr<Window> window = Find(message.hwnd);
    if (window == nullptr) {
        return;
    }
    if (message.message != WM_MOUSELEAVE) {
        AskForCursor(*window, message.message);
        return;
    }
    window->leaveWanted = false;
    if (ThePointer().over == message.hwnd) {
        ThePointer().over = nullptr;
    }
}

void SetPointerPosition(POINT onScreen) {
    ThePointer().onScreen = onScreen;
}

POINT LastPointerPosition() {
    return ThePointer().onScreen;
}

void DropCaptureOf(HWND window) {
    const HWND captured = ThePointer().captured;
    if (captured != nullptr && IsWithin(captured, window)) {
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
    if (ThePointer().captured == handle && windowing::Shows(*window)) {
        windowing::SurfaceOf(*window).GrabPointer(true);
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
        windowing::SurfaceOf(*window).SetPointerShape(windowing::ShapeOf(cursor));
    }
    return previous;
}

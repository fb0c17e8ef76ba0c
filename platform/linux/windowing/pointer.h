// The pointer: what it does, as the windows are told of it, and who has captured it. Knows nothing
// of Qt's events; surfaces report where the pointer is on the screen.
#pragma once

#include <windows.h>

#include <optional>

namespace windowing {

// Where messages take their places only when they are fetched: then it is seen which window has the
// capture, and where that window stands by now.
struct PointerInput {
    HWND source = nullptr; // the window that the system told of it
    UINT message = 0;      // WM_MOUSEMOVE ... WM_MOUSEWHEEL, WM_MOUSELEAVE
    WORD keys = 0;         // MK_...
    short wheelDelta = 0;
    POINT onScreen{};
    bool secondPress = false; // a button's press that makes a double click
    DWORD timeMs = 0;
};

// All of this is of the thread that has the windows alone.

// Nothing when it concerns no window. WM_MOUSELEAVE in place of the input itself: that comes after.
std::optional<MSG> MessageFor(const PointerInput& input);
// The message is about to be handed out. The window is asked for its cursor first, as it is before
// each mouse message.
void PointerMessageFetched(const MSG& message);

void SetPointerPosition(POINT onScreen);
// Where the pointer was last heard of.
POINT LastPointerPosition();

// The window, or what it stands in, goes, hides or is disabled.
void DropCaptureOf(HWND window);

} // namespace windowing

// The pointer: what it does, as the windows are told of it, and who has captured it. Knows nothing
// of Qt's events; surfaces report here where the pointer is on the screen.
#pragma once

#include "windowing/message_queue.h"

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
    bool secondPress = false; // WM_LBUTTONDOWN or WM_RBUTTONDOWN that makes a double click
    DWORD timeMs = 0;
};

// All of this is of the thread that has the windows alone.

// Moves that nobody has fetched yet are one.
void PutPointerInput(const PointerInput& input);
// With `remove` the window is asked for its cursor first, as it is before each mouse message.
std::optional<MSG> TakePointerInput(const MessageFilter& filter, bool remove);
// Where the pointer was last heard of.
POINT LastPointerPosition();

// The window goes or hides.
void DropCaptureOf(HWND window);

} // namespace windowing

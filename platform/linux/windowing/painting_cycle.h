// From what is invalid to what is seen: WM_PAINT's calls, layered windows, rounded corners. A
// top-level window and its children share one canvas, which is shown when none of them has anything
// to paint any more.
#pragma once

#include "windowing/message_queue.h"
#include "windowing/window.h"

namespace windowing {

// `part` is in client coordinates. What stands in the window becomes invalid with it.
void Invalidate(Window& window, const RECT& part, bool erase);
// The place that the child takes in its parent.
void InvalidateBehind(const Window& child);
// Parents come before their children. Null when all is painted.
HWND FirstToPaint(const MessageFilter& filter);
// Ends a painting that is in progress.
void CloseCanvas(Window& window);

} // namespace windowing

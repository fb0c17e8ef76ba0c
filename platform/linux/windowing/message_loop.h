// Getting messages: what is posted, what the user does, timers and painting, in their order, and
// sleeping in Qt in between.
#pragma once

#include <functional>

namespace windowing {

// Before the first window: lets other threads wake the loop. The application is there by then.
void PrepareLoop();

// Dispatches messages until `done`, or until the quit message comes, which is left for the loop
// outside. For what blocks and yet keeps the windows going.
void DispatchUntil(const std::function<bool()>& done);

} // namespace windowing

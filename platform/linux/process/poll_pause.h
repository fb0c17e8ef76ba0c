// What makes polling cheap: a thread that polls for something tells its next Sleep what it polls
// for.
#pragma once

#include "process/event.h"

#include <memory>

namespace process {

// A thousand wake-ups a second cost two to three per cent of a core, most of them for nothing. The
// calling thread's next Sleep, if it is a short one, therefore ends when `ready` is set, and lasts
// up to kLongestPollPauseMs when it is not: that is how late the thread may then see anything else,
// such as that it is to stop.
void SleepUntilReady(const std::shared_ptr<Event>& ready);

// Longer than a capture stream lets silence gather, so that one wake-up serves for both.
inline constexpr DWORD kLongestPollPauseMs = 70;

} // namespace process

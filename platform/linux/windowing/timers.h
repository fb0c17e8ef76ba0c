// The timers of windows: when each is due next. Knows windows by their handles only.
#pragma once

#include "windowing/message_queue.h"

#include <windows.h>

#include <chrono>
#include <map>
#include <optional>
#include <utility>

namespace windowing {

// Of the thread that has the windows alone.
class Timers {
public:
    using Clock = std::chrono::steady_clock;

    void Set(HWND window, UINT_PTR id, UINT periodMs, Clock::time_point now);
    bool Kill(HWND window, UINT_PTR id);
    void KillAllOf(HWND window);

    // The timer that has been due longest. However late it is taken, it is due once.
    std::optional<MSG> TakeDue(const MessageFilter& filter, bool remove, Clock::time_point now);
    std::optional<Clock::time_point> NextDue() const;

private:
    struct Timer {
        Clock::duration period;
        Clock::time_point due;
    };
    std::map<std::pair<HWND, UINT_PTR>, Timer> timers_;
};

Timers& AllTimers();

} // namespace windowing

#include "windowing/timers.h"

#include "process/never_destroyed.h"
#include "windowing/window.h"

#include <algorithm>
#include <memory>

namespace windowing {

namespace {

constexpr UINT kShortestPeriodMs = 10;
constexpr UINT kLongestPeriodMs = 0x7FFFFFFF;

bool DueSooner(const auto& one, const auto& other) {
    return one.second.due < other.second.due;
}

} // namespace

void Timers::Set(HWND window, UINT_PTR id, UINT periodMs, Clock::time_point now) {
    const std::chrono::milliseconds period(
        std::clamp(periodMs, kShortestPeriodMs, kLongestPeriodMs));
    timers_[{window, id}] = {period, now + period};
}

bool Timers::Kill(HWND window, UINT_PTR id) {
    return timers_.erase({window, id}) != 0;
}

void Timers::KillAllOf(HWND window) {
    std::erase_if(timers_, [&](const auto& entry) { return entry.first.first == window; });
}

std::optional<MSG> Timers::TakeDue(const MessageFilter& filter, bool remove,
                                   Clock::time_point now) {
    auto longest = timers_.end();
    for (auto entry = timers_.begin(); entry != timers_.end(); ++entry) {
        if (entry->second.due <= now && filter.Takes(entry->first.first, WM_TIMER) &&
            (longest == timers_.end() || DueSooner(*entry, *longest))) {
            longest = entry;
        }
    }
    if (longest == timers_.end()) {
        return std::nullopt;
    }
    const auto [window, id] = longest->first;
    Timer& timer = longest->second;
    if (remove) {
        const Clock::time_point next = timer.due + timer.period;
        timer.due = next > now ? next : now + timer.period;
    }
    return MSG{window, WM_TIMER, id, 0, MessageTimeMs(), {}};
}

std::optional<Timers::Clock::time_point> Timers::NextDue() const {
    const auto next =
        std::min_element(timers_.begin(), timers_.end(),
                         [](const auto& one, const auto& other) { return DueSooner(one, other); });
    return next == timers_.end() ? std::nullopt : std::optional(next->second.due);
}

Timers& AllTimers() {
    static Timers& timers = process::NeverDestroyed<Timers>();
    return timers;
}

} // namespace windowing

UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT periodMs, TIMERPROC procedure) {
    if (windowing::Find(window) == nullptr || procedure != nullptr) {
        return 0;
    }
    windowing::AllTimers().Set(window, id, periodMs, windowing::Timers::Clock::now());
    return id != 0 ? id : 1; // what is returned says only that it worked
}

BOOL KillTimer(HWND window, UINT_PTR id) {
    return windowing::AllTimers().Kill(window, id) ? TRUE : FALSE;
}

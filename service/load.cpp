#include "load.h"

#include <algorithm>

namespace service {
namespace {

using namespace std::chrono_literals;

constexpr auto kSpan = 3s; // the last one to two of these count
// A client that sends its 10 ms back to back brings as much with each exchange as the last one
// took, whatever that was: only what people would notice is late.
constexpr auto kNoticed = 250ms;
constexpr int kLateShare = 5; // a fifth

} // namespace

void Load::Note(Duration audio, Duration took, Time now) {
    const std::lock_guard lock(mutex_);
    Turn(now);
    current_.audio += audio;
    current_.longest = std::max(current_.longest, took);
    if (took > std::max<Duration>(audio, kNoticed)) {
        current_.lateAudio += audio;
    }
}

bool Load::IsTooHigh(Time now) const {
    const std::lock_guard lock(mutex_);
    Turn(now);
    const Duration audio = current_.audio + former_.audio;
    const Duration late = current_.lateAudio + former_.lateAudio;
    return audio > Duration::zero() && late * kLateShare >= audio;
}

Load::Duration Load::Longest(Time now) const {
    const std::lock_guard lock(mutex_);
    Turn(now);
    return std::max(current_.longest, former_.longest);
}

void Load::Turn(Time now) const {
    if (now - current_.begun < kSpan) {
        return;
    }
    former_ = now - current_.begun < 2 * kSpan ? current_ : Span{};
    current_ = Span{};
    current_.begun = now;
}

} // namespace service

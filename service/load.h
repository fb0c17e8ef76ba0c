// Whether the computer keeps up: how long exchanges take beside the audio that they bring.
#pragma once

#include <chrono>
#include <mutex>

namespace service {

// Any thread.
class Load {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::steady_clock::duration;

    // An exchange with so much audio has been answered after so long.
    void Note(Duration audio, Duration took, Time now);

    // Of the audio of the last seconds, a fifth and more came in exchanges that took longer than it
    // lasts.
    bool IsTooHigh(Time now) const;

    // Of the last exchanges with audio, the longest time from the request to its answer.
    Duration Longest(Time now) const;

private:
    struct Span {
        Time begun{};
        Duration audio{};
        Duration lateAudio{};
        Duration longest{};
    };

    void Turn(Time now) const;

    mutable std::mutex mutex_; // guards what follows
    mutable Span current_;
    mutable Span former_;
};

} // namespace service

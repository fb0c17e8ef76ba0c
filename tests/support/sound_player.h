// Plays samples into a sink of the sound server and tells when each was handed over. Knows the
// sound server; nothing of the program.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

// One play-back stream at a time, on the server that PULSE_SERVER names. Operations come from one
// thread, HandedOverAt from any; a thread of the object's own feeds the stream. Failures throw
// std::runtime_error.
class SoundPlayer {
public:
    using TimePoint = std::chrono::steady_clock::time_point; // CLOCK_MONOTONIC

    // `bufferMs` is what the server may hold ahead of the sink: small for a short way, large when
    // no gap may be heard however busy the machine is. A sink of the same rate and channels, at
    // full volume, plays the samples to the last bit.
    SoundPlayer(const std::string& sink, std::uint32_t sampleRate, unsigned channels,
                unsigned bufferMs);
    ~SoundPlayer(); // falls silent at once
    SoundPlayer(const SoundPlayer&) = delete;
    SoundPlayer& operator=(const SoundPlayer&) = delete;

    // Plays interleaved samples, which are copied, and returns when the stream is open. What played
    // before is cut off.
    void Play(std::span<const float> samples);

    // When the frame (counted from 0) went to the server; nothing while it has not.
    std::optional<TimePoint> HandedOverAt(std::size_t frame) const;
    // Waits until the sink has played everything; false after `limit`, or when the server is gone.
    bool WaitUntilPlayed(std::chrono::milliseconds limit = std::chrono::seconds(10));

private:
    struct State;
    std::unique_ptr<State> state_;
};

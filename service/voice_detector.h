// Tells people's voices from all other sound. Knows nothing of words or utterances.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace service {

// The network of Silero VAD. Used by one thread at a time.
class VoiceDetector {
public:
    static constexpr std::size_t kWindow = 512; // samples at 16 kHz: 32 ms

    // How sure it is, from 0 to 1, that somebody speaks in the stream's next window.
    float Probability(std::span<const std::int16_t, kWindow> window);

private:
    static constexpr std::size_t kContext = 64; // samples of the window before
    static constexpr std::size_t kState = 128;

    std::array<float, kContext> context_{};
    std::array<float, kState> hidden_{};
    std::array<float, kState> cell_{};
};

// Lets through what people say and puts silence in the place of all else: a recogniser takes music
// and noise for words. Used by one thread at a time.
class VoiceGate {
public:
    // What is to be heard of the stream's next samples. When somebody begins to speak, the moment
    // before comes along, so that this can be longer than what was given; until a window is
    // complete it can be shorter. Where a stream is cut into calls does not matter.
    std::vector<std::int16_t> Pass(std::span<const std::int16_t> samples);

private:
    void Judge(std::vector<std::int16_t>& heard);

    VoiceDetector detector_;
    std::array<std::int16_t, VoiceDetector::kWindow> window_{};
    std::size_t filled_ = 0;
    std::vector<std::int16_t> before_; // what silence was given for, as far as it may be wanted
    bool open_ = false;
    int windowsAgainst_ = 0; // in a row, that speak for opening or for closing
};

} // namespace service

// One stream of sound cut into utterances: samples in, recognised words out, of what people say and
// of nothing else. Knows nothing of clocks, languages or captions.
#pragma once

#include "decoder_pool.h"
#include "voice_detector.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace service {

constexpr int kSampleRate = 16'000;

// Used by one thread at a time.
class Recognizer {
public:
    explicit Recognizer(DecoderLease decoder);
    Recognizer(const Recognizer&) = delete;
    Recognizer& operator=(const Recognizer&) = delete;
    ~Recognizer();

    // Takes the stream's next samples (mono, 16 kHz) and gives the words of each utterance that
    // ended in them. Where a stream is cut into calls does not matter.
    std::vector<std::string> Hear(std::span<const std::int16_t> samples);

    // Somebody is speaking: an utterance is under way.
    bool InUtterance() const { return inUtterance_; }

    // The words of the utterance under way, as far as it has come.
    std::string WordsSoFar() const;

    // Ends the utterance under way and gives its words.
    std::string Finish();

private:
    std::vector<std::string> Decode(std::span<const std::int16_t> samples);
    void CountSpeech(std::size_t samples);

    DecoderLease decoder_;
    VoiceGate gate_;
    bool inUtterance_ = false;
    std::size_t utteranceSamples_ = 0;
    std::size_t samplesSinceAdapting_ = 0;
};

} // namespace service

// One client's running translation: its stream of audio in, captions out. Knows nothing of keys,
// quotas or HTTP.
#pragma once

#include "recognizer.h"
#include "translator.h"

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace service {

struct Caption {
    std::string original;
    std::string translated; // empty when the translation failed
    bool isFinal = false;   // a partial is replaced by the next caption
};

// Used by one thread at a time.
class Session {
public:
    using Time = std::chrono::steady_clock::time_point;

    Session(DecoderLease decoder, Conversation conversation, ChainPool& chains);

    // Takes the audio that has come since the last call, none included, and gives what is new:
    // finals in the order of speech, then at most one partial.
    std::vector<Caption> Exchange(std::span<const std::int16_t> samples, Time now);

    // The final of an utterance that is cut off because no more audio will be taken, if any.
    std::vector<Caption> Finish();

    const Conversation& Languages() const { return conversation_; }

private:
    std::vector<Caption> HearSilence(Time now);
    std::vector<Caption> Hear(std::span<const std::int16_t> samples);
    void AddFinal(const std::string& words, std::vector<Caption>& captions);
    void AddPartial(Time now, std::chrono::milliseconds every, std::vector<Caption>& captions);

    Conversation conversation_;
    Recognizer recognizer_;
    Translator translator_;
    std::string partialWords_; // of the last partial given out
    Time lastPartial_{};
    Time lastAudio_{};
    Time heardUntil_{}; // the moment up to which audio or silence in its place has been heard
};

} // namespace service

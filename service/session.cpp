#include "session.h"

#include "caption_text.h"

#include <algorithm>

namespace service {
namespace {

using namespace std::chrono_literals;

// Clients send nothing while nothing sounds, and then the decoder would never hear the pause that
// ends an utterance. A gap this long is a pause and no delay of the network; from then on the
// decoder hears silence instead.
constexpr auto kPauseAfter = 150ms;
// The utterance ends here, with as much silence as the decoder itself asks for: it would go on
// taking the first of it for speech. A client that says for so long that it has nothing is in no
// hiccup.
constexpr auto kFinalAfter = 300ms;
// Words change faster than anybody reads, and each change costs a translation.
constexpr auto kPartialEvery = 200ms;
// A client that brings much at once waits for its answers: what partials take is spared for finals.
constexpr int kSlicesForPartial = 8;
constexpr auto kPartialAtLeastEvery = 1000ms;
// Others may have the chains in use. A partial that has to wait is old when it comes.
constexpr auto kFinalPatience = 2000ms;
constexpr auto kPartialPatience = 10ms;

} // namespace

Session::Session(DecoderLease decoder, Conversation conversation, ChainPool& chains)
    : conversation_(std::move(conversation)), recognizer_(std::move(decoder)),
      translator_(conversation_, chains) {}

std::vector<Caption> Session::Exchange(std::span<const std::int16_t> samples, Time now) {
    std::vector<Caption> captions;
    if (samples.empty()) {
        captions = HearSilence(now);
    } else {
        captions = Hear(samples);
        lastAudio_ = heardUntil_ = now;
    }
    const std::chrono::milliseconds slice(samples.size() / (kSampleRate / 1000));
    AddPartial(now,
               std::clamp<std::chrono::milliseconds>(kSlicesForPartial * slice, kPartialEvery,
                                                     kPartialAtLeastEvery),
               captions);
    return captions;
}

std::vector<Caption> Session::Finish() {
    std::vector<Caption> captions;
    if (recognizer_.InUtterance()) {
        AddFinal(recognizer_.Finish(), captions);
    }
    return captions;
}

std::vector<Caption> Session::HearSilence(Time now) {
    if (!recognizer_.InUtterance() || now - lastAudio_ < kPauseAfter) {
        return {};
    }

    const Time until = std::min(now, lastAudio_ + kFinalAfter);
    const auto missing = std::chrono::duration_cast<std::chrono::milliseconds>(until - heardUntil_);
    const std::vector<std::int16_t> silence(static_cast<std::size_t>(missing.count()) *
                                            (kSampleRate / 1000));
    heardUntil_ += missing;
    std::vector<Caption> captions = Hear(silence);
    if (until == now) {
        return captions;
    }
    std::ranges::move(Finish(), std::back_inserter(captions));
    return captions;
}

std::vector<Caption> Session::Hear(std::span<const std::int16_t> samples) {
    std::vector<Caption> captions;
    for (const std::string& words : recognizer_.Hear(samples)) {
        AddFinal(words, captions);
    }
    return captions;
}

void Session::AddFinal(const std::string& words, std::vector<Caption>& captions) {
    partialWords_.clear();
    const std::string original = Presentable(SpellEnglish(words));
    if (!original.empty()) { // noise that the decoder found no words in
        captions.push_back(
            {original, translator_.Translate(original, kFinalPatience).value_or(""), true});
    }
}

void Session::AddPartial(Time now, std::chrono::milliseconds every,
                         std::vector<Caption>& captions) {
    if (now - lastPartial_ < every) {
        return;
    }
    const std::string words = recognizer_.WordsSoFar();
    if (words.empty() || words == partialWords_) {
        return;
    }
    const std::string original = Presentable(SpellEnglish(words));
    auto translated = translator_.Translate(original, kPartialPatience);
    if (!translated) {
        return; // the next exchange tries again
    }
    lastPartial_ = now;
    partialWords_ = words;
    captions.push_back({original, std::move(*translated), false});
}

} // namespace service

#include "recognizer.h"

#include <pocketsphinx.h>

#include <algorithm>
#include <stdexcept>

namespace service {
namespace {

// One frame of the decoder: whether somebody speaks is asked after each, so that two utterances
// within one call are told apart.
constexpr std::size_t kStepSamples = kSampleRate / 100;

// A speaker who makes no pause, or steady noise, is cut here: captions must settle some time.
constexpr std::size_t kLongestUtteranceSamples = 12 * std::size_t{kSampleRate};

constexpr std::size_t kAdaptEverySamples = kSampleRate / 2;

void Require(int result) {
    if (result < 0) {
        throw std::runtime_error("the decoder failed");
    }
}

std::string Words(ps_decoder_t* decoder) {
    const char* const words = ps_get_hyp(decoder, nullptr);
    return words == nullptr ? std::string() : std::string(words);
}

} // namespace

Recognizer::Recognizer(DecoderLease decoder) : decoder_(std::move(decoder)) {
    decoder_->Forget();
    Require(ps_start_utt(decoder_->Get()));
}

Recognizer::~Recognizer() {
    ps_end_utt(decoder_->Get());
}

std::vector<std::string> Recognizer::Hear(std::span<const std::int16_t> samples) {
    return Decode(gate_.Pass(samples));
}

std::vector<std::string> Recognizer::Decode(std::span<const std::int16_t> samples) {
    std::vector<std::string> ended;
    while (!samples.empty()) {
        const auto step = samples.first(std::min(samples.size(), kStepSamples));
        samples = samples.subspan(step.size());
        Require(ps_process_raw(decoder_->Get(), step.data(), step.size(), 0, 0));

        const bool speech = ps_get_in_speech(decoder_->Get()) != 0;
        const bool fellSilent = inUtterance_ && !speech;
        inUtterance_ = speech;
        if (speech) {
            CountSpeech(step.size());
        }
        if (fellSilent || utteranceSamples_ >= kLongestUtteranceSamples) {
            ended.push_back(Finish());
        }
    }
    return ended;
}

void Recognizer::CountSpeech(std::size_t samples) {
    utteranceSamples_ += samples;
    samplesSinceAdapting_ += samples;
    if (samplesSinceAdapting_ < kAdaptEverySamples) {
        return;
    }
    samplesSinceAdapting_ = 0;
    decoder_->AdaptToSpeaker();
}

std::string Recognizer::WordsSoFar() const {
    return inUtterance_ ? Words(decoder_->Get()) : std::string();
}

std::string Recognizer::Finish() {
    inUtterance_ = false;
    utteranceSamples_ = 0;
    Require(ps_end_utt(decoder_->Get()));
    std::string words = Words(decoder_->Get());
    Require(ps_start_utt(decoder_->Get()));
    return words;
}

} // namespace service

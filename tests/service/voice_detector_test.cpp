#include "recognizer.h"
#include "recorded_speech.h"
#include "voice_detector.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numbers>
#include <random>

namespace service {
namespace {

using Samples = std::vector<std::int16_t>;

Samples Noise(double seconds, int loudest) {
    std::mt19937 random(1);
    Samples samples(static_cast<std::size_t>(seconds * kSampleRate));
    for (std::int16_t& sample : samples) {
        sample = static_cast<std::int16_t>(
            static_cast<int>(random() % 65'536) * 2 * loudest / 65'536 - loudest);
    }
    return samples;
}

// Four chords again and again, plucked twice a second.
Samples Music(double seconds) {
    constexpr std::array kRoots = {220.0, 174.6, 261.6, 196.0}; // in Hz
    Samples samples(static_cast<std::size_t>(seconds * kSampleRate));
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double time = static_cast<double>(i) / kSampleRate;
        const double root = kRoots[static_cast<std::size_t>(time) % kRoots.size()];
        double sum = 0;
        for (const double interval : {0.5, 1.0, 1.25, 1.5}) {
            for (const double overtone : {1.0, 2.0, 3.0}) {
                sum +=
                    std::sin(2 * std::numbers::pi * root * interval * overtone * time) / overtone;
            }
        }
        const double sinceStroke = std::fmod(time, 0.5);
        samples[i] = static_cast<std::int16_t>(2500 * sum * std::exp(-4 * sinceStroke));
    }
    return samples;
}

Samples Together(const std::vector<Samples>& parts) {
    Samples all;
    for (const Samples& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

Samples Pass(VoiceGate& gate, std::span<const std::int16_t> samples, std::size_t slice) {
    Samples heard;
    for (std::size_t at = 0; at < samples.size(); at += slice) {
        const Samples part = gate.Pass(samples.subspan(at, std::min(slice, samples.size() - at)));
        heard.insert(heard.end(), part.begin(), part.end());
    }
    return heard;
}

// What ONNX Runtime 1.30 gives for each eighth window of the second recording, by the model file
// that the weights come from.
TEST(VoiceDetectorTest, ItIsAsSureAsTheModelThatItsWeightsComeFrom) {
    constexpr std::array kExpected = {0.02385F, 0.70706F, 0.99982F, 0.99967F, 0.85570F, 0.97811F,
                                      0.99995F, 0.99990F, 0.99941F, 0.99980F, 0.99681F, 0.85602F};
    const Samples samples = Recordings()[1].samples;
    VoiceDetector detector;
    constexpr std::size_t kWindow = VoiceDetector::kWindow;
    for (std::size_t window = 0; window <= 8 * (kExpected.size() - 1); ++window) {
        const float probability = detector.Probability(
            std::span(samples).subspan(window * kWindow).first<VoiceDetector::kWindow>());
        if (window % 8 == 0) {
            EXPECT_NEAR(probability, kExpected[window / 8], 0.0005) << "window " << window;
        }
    }
}

TEST(VoiceGateTest, SpeechComesThroughWithItsBeginningAndOtherSoundDoesNot) {
    const Samples speech = Recordings()[1].samples;
    const Samples all = Together({Noise(3, 600), Music(4), speech, Noise(3, 600), speech});
    VoiceGate gate;
    const Samples heard = Pass(gate, all, 1600);

    constexpr std::size_t kSecond = kSampleRate;
    EXPECT_EQ(std::count(heard.begin(), heard.begin() + 6 * kSecond, 0), 6 * kSecond)
        << "noise or music was heard";
    // The first word begins 0.25 s into the recording.
    const std::span<const std::int16_t> spoken =
        std::span(speech).subspan(kSecond / 5, 2 * kSecond);
    const auto first = std::ranges::search(heard, spoken);
    ASSERT_FALSE(first.empty()) << "a part of the sentence is missing";
    EXPECT_FALSE(
        std::ranges::search(first.end(), heard.end(), spoken.begin(), spoken.end()).empty())
        << "a part of the second sentence is missing";

    for (const std::size_t slice : {std::size_t{37}, VoiceDetector::kWindow, all.size()}) {
        VoiceGate again;
        EXPECT_EQ(Pass(again, all, slice), heard) << "in slices of " << slice;
    }
}

TEST(RecognizerTest, MusicAndNoiseHaveNoWords) {
    DecoderPool pool(1);
    Recognizer recognizer(pool.Acquire());
    for (const Samples& sound : {Music(12), Noise(6, 8000)}) {
        for (const std::string& words : recognizer.Hear(sound)) {
            EXPECT_EQ(words, "");
        }
        EXPECT_EQ(recognizer.Finish(), "");
    }
}

} // namespace
} // namespace service

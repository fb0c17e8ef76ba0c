// A session on recorded speech, with a clock of the test's own: nothing waits.
#include "recorded_speech.h"
#include "session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace service {
namespace {

using namespace std::chrono_literals;

constexpr auto kSlice = 100ms;
constexpr std::size_t kSliceSamples = kSampleRate / 10;

// A client that sends slices while there is speech and empty exchanges while there is none.
class Client {
public:
    explicit Client(DecoderPool& pool)
        : session_(pool.Acquire(), {"en-US", "es-ES", "es"}, chains_) {}

    void Speak(std::span<const std::int16_t> samples) {
        while (!samples.empty()) {
            const auto slice = samples.first(std::min(samples.size(), kSliceSamples));
            samples = samples.subspan(slice.size());
            Exchange(slice);
        }
    }

    // Empty exchanges until the last caption is final; the time that takes.
    std::chrono::milliseconds SilenceUntilFinal() {
        auto passed = 0ms;
        for (; passed < 3s && !captions_.empty() && !captions_.back().isFinal; passed += kSlice) {
            Exchange({});
        }
        return passed;
    }

    void Exchange(std::span<const std::int16_t> samples) {
        now_ += kSlice;
        std::ranges::move(session_.Exchange(samples, now_), std::back_inserter(captions_));
    }

    std::vector<std::string> FinalWords() const {
        std::string text;
        for (const Caption& caption : captions_) {
            if (caption.isFinal) {
                text += caption.original + ' ';
            }
        }
        return SplitWords(text);
    }

    Session& TheSession() { return session_; }
    const std::vector<Caption>& Captions() const { return captions_; }

private:
    ChainPool chains_;
    Session session_;
    Session::Time now_{};
    std::vector<Caption> captions_;
};

TEST(SessionTest, RecordedSpeechBecomesCaptions) {
    DecoderPool pool(1);
    Client client(pool);
    std::vector<std::string> spoken;
    for (const Recording& recording : Recordings()) {
        client.Speak(recording.samples);
        EXPECT_LE(client.SilenceUntilFinal(), 400ms) << "a gap in the audio ended no utterance";
        spoken.insert(spoken.end(), recording.words.begin(), recording.words.end());
    }
    ASSERT_EQ(spoken.size(), 71U);
    const std::size_t errors = WordErrors(spoken, client.FinalWords());
    RecordProperty("word_errors", static_cast<int>(errors));
    EXPECT_LE(errors, 21U) << "of 71 words; it was 15 once";

    const Caption* last = nullptr;
    std::size_t partials = 0;
    for (const Caption& caption : client.Captions()) {
        EXPECT_FALSE(caption.original.empty());
        EXPECT_FALSE(caption.translated.empty()) << caption.original;
        EXPECT_EQ((caption.original + caption.translated).find_first_of("\"\\{}"),
                  std::string::npos);
        if (last != nullptr && !last->isFinal && !caption.isFinal) {
            EXPECT_NE(caption.original, last->original) << "a partial that says nothing new";
        }
        partials += caption.isFinal ? 0 : 1;
        last = &caption;
    }
    EXPECT_GE(partials, 20U);
    ASSERT_NE(last, nullptr);
    EXPECT_TRUE(last->isFinal);
}

TEST(SessionTest, AShortGapIsNoPauseAndALongOneIs) {
    const std::vector<Recording> recordings = Recordings();
    DecoderPool pool(1);
    Client client(pool);
    // In the middle of a word: the reader makes no pause in these 1.5 s.
    const std::span<const std::int16_t> start =
        std::span(recordings[0].samples).first(std::size_t{15} * kSliceSamples);
    client.Speak(start);
    ASSERT_FALSE(client.Captions().empty());
    client.Exchange({});
    EXPECT_FALSE(client.Captions().back().isFinal) << "cut after 100 ms without audio";
    client.SilenceUntilFinal();
    ASSERT_TRUE(client.Captions().back().isFinal);

    const std::size_t captions = client.Captions().size();
    for (int i = 0; i < 20; ++i) {
        client.Exchange({});
    }
    EXPECT_EQ(client.Captions().size(), captions) << "silence alone made captions";
    EXPECT_TRUE(client.TheSession().Finish().empty());
}

TEST(SessionTest, WordsDependNeitherOnSlicingNorOnTheDecodersLastUser) {
    const std::vector<Recording> recordings = Recordings();
    const std::span<const std::int16_t> samples =
        std::span(recordings[4].samples).first(std::size_t{2} * kSampleRate);
    DecoderPool pool(1);
    const auto recognise = [&](std::size_t slice) {
        Recognizer recognizer(pool.Acquire());
        std::vector<std::string> words;
        for (std::size_t at = 0; at < samples.size(); at += slice) {
            std::ranges::move(
                recognizer.Hear(samples.subspan(at, std::min(slice, samples.size() - at))),
                std::back_inserter(words));
        }
        words.push_back(recognizer.Finish());
        return words;
    };
    const std::vector<std::string> fresh = recognise(samples.size());
    EXPECT_EQ(fresh, recognise(1600));
    {
        Recognizer other(pool.Acquire()); // a louder speaker, stopped in the middle
        std::vector<std::int16_t> loud(recordings[1].samples.begin(), recordings[1].samples.end());
        for (std::int16_t& sample : loud) {
            sample = static_cast<std::int16_t>(std::clamp(sample * 4, -32'768, 32'767));
        }
        other.Hear(std::span(loud).first(loud.size() / 2));
    }
    EXPECT_EQ(fresh, recognise(16'384));
}

TEST(RecognizerTest, SpeechWithoutAPauseIsCutAndGoesOn) {
    // The 1.5 s without a pause, again and again for 15 s.
    const std::vector<Recording> recordings = Recordings();
    const std::span<const std::int16_t> piece =
        std::span(recordings[0].samples).subspan(kSampleRate / 2, std::size_t{3} * kSampleRate / 2);
    DecoderPool pool(1);
    Recognizer recognizer(pool.Acquire());
    std::vector<int> cutsAt; // pieces heard until then
    for (int heard = 1; heard <= 10; ++heard) {
        for (const std::string& words : recognizer.Hear(piece)) {
            EXPECT_FALSE(words.empty());
            cutsAt.push_back(heard);
        }
    }
    // 12 s are eight pieces, and the decoder takes a moment to notice that somebody speaks.
    EXPECT_THAT(cutsAt, testing::ElementsAre(testing::AnyOf(8, 9)));
    EXPECT_TRUE(recognizer.InUtterance());
}

} // namespace
} // namespace service

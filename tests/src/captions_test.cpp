#include "captions.h"
#include "overlay_probe.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <regex>

namespace {

namespace fs = std::filesystem;

// ---- Card heights ------------------------------------------------------------------------------

// A measurer of texts as tall as such terms make them.
auto PretendHeights(const CardHeights::Terms& terms) {
    const auto perUnit = static_cast<float>(terms.dpi) / static_cast<float>(terms.cardWidth);
    return [perUnit](const WideString& text, bool translation) {
        return static_cast<float>(text.size()) * perUnit * (translation ? 1.25F : 1.0F) + 10.0F;
    };
}

// What the cards come to when each is measured anew.
struct Measured {
    std::vector<double> tops;
    float content = 0;
};
Measured MeasureAll(const std::vector<CaptionEntry>& captions, const CardHeights::Terms& terms) {
    Measured all;
    const auto height = PretendHeights(terms);
    double y = 0;
    for (const CaptionEntry& caption : captions) {
        all.tops.push_back(y);
        if (!caption.Empty()) {
            const bool translated = !caption.translated.empty() && terms.showTranslation;
            const CardTexts texts{caption.original.empty() ? 0 : height(caption.original, false),
                                  translated ? height(caption.translated, true) : 0};
            y += texts.CardHeight() + static_cast<float>(terms.gap);
        }
    }
    all.content = y > 0 ? static_cast<float>(y - terms.gap) : 0;
    return all;
}

TEST(CardHeights, StayThoseOfMeasuringEverythingAnewWhateverHappensToTheList) {
    std::mt19937 random(7);
    const auto below = [&](unsigned n) { return static_cast<int>(random() % n); };
    const auto text = [&] { return WideString(static_cast<std::size_t>(below(40)), TEXT('x')); };
    CardHeights heights;
    std::vector<CaptionEntry> captions;
    CardHeights::Terms terms{350, 96, 6, true};
    for (int step = 0; step < 4000; ++step) {
        switch (below(12)) {
        case 0:
            terms.showTranslation = !terms.showTranslation;
            break;
        case 1:
            terms = {300 + below(2), 96 * (1 + below(2)), 6 + below(2), terms.showTranslation};
            break;
        case 2:
            if (below(20) == 0) {
                captions.clear();
                heights.ChangedFrom(0);
            }
            break;
        default:
            if (captions.empty() || !captions.back().pending) {
                captions.emplace_back();
            }
            captions.back() = {text(), text(), below(3) != 0};
            heights.ChangedFrom(captions.size() - 1);
        }
        if (below(3) == 0) {
            continue; // several changes between two paints
        }
        heights.Update(captions, terms, PretendHeights(terms));
        const Measured expected = MeasureAll(captions, terms);
        ASSERT_EQ(heights.ContentHeight(), expected.content) << "step " << step;
        for (std::size_t i = 0; i < captions.size(); ++i) {
            ASSERT_EQ(heights.Top(i), expected.tops[i]) << "step " << step << ", card " << i;
        }
    }
}

TEST(CardHeights, MeasureATextOnceHoweverOftenAndWithWhateverListItIsPainted) {
    CardHeights heights;
    std::vector<CaptionEntry> captions(5000, CaptionEntry{TEXT("said"), TEXT("meant"), false});
    int measured = 0;
    const auto measure = [&](const WideString& text, bool translation) {
        ++measured;
        return PretendHeights({350, 96, 6, true})(text, translation);
    };
    heights.Update(captions, {350, 96, 6, true}, measure);
    EXPECT_EQ(measured, 10000);
    for (const bool shown : {false, true, false, true}) {
        heights.Update(captions, {350, 96, 6, shown}, measure);
    }
    EXPECT_EQ(measured, 10000) << "hiding a translation does not change its height";
    captions.push_back({TEXT("new"), TEXT("one"), true});
    heights.ChangedFrom(5000);
    heights.Update(captions, {350, 96, 6, true}, measure);
    EXPECT_EQ(measured, 10002);
}

// ---- The list ----------------------------------------------------------------------------------

std::string Describe(const std::vector<CaptionEntry>& captions) {
    std::string all;
    for (const CaptionEntry& caption : captions) {
        all += WideToUtf8(caption.original) + "/" + WideToUtf8(caption.translated) +
               (caption.pending ? "? " : " ");
    }
    return all;
}

TEST(Captions, AreReplacedWhilePendingAndBecomeFinalInPlace) {
    OverlayProbe overlay;
    const auto after = [&](const char* original, const char* translated, bool isFinal) {
        overlay.Result(original, translated, isFinal);
        return Describe(overlay.Captions());
    };
    EXPECT_EQ(after("a", "", false), "a/? ");
    EXPECT_EQ(after("a b", "x", false), "a b/x? ");
    EXPECT_EQ(after("a b c", "", true), "a b c/ ") << "an empty translation wipes the old one";
    EXPECT_EQ(after("d", "y", true), "a b c/ d/y ");
    EXPECT_EQ(after("e", "z", false), "a b c/ d/y e/z? ");
    overlay.Command(kClearButton);
    EXPECT_EQ(Describe(overlay.Captions()), "");
    EXPECT_EQ(overlay.Status(), "Cleared");
    EXPECT_EQ(after("f", "", false), "f/? ");
    overlay.Send(kMsgResult);
    overlay.Send(kMsgError);
    EXPECT_EQ(Describe(overlay.Captions()), "f/? ") << "a message without a result";
}

TEST(Captions, ThatWaitAreTakenTogetherInTheirOrderPastWhatStandsBetweenThem) {
    OverlayProbe overlay;
    std::string expected;
    for (int i = 0; i < 40; ++i) {
        TranslationResult result;
        result.original = Utf8ToWide(std::to_string(i));
        result.isFinal = true;
        PostResult(overlay.Window(), result);
        if (i == 20) {
            PostMessageW(overlay.Window(), kMsgStopped, 0, 0);
        }
        expected += std::to_string(i) + "/ ";
    }
    overlay.Pump(1); // of the messages, not of the results
    EXPECT_EQ(Describe(overlay.Captions()), expected);
    EXPECT_NE(overlay.Status(), "Paused");
    overlay.Pump(1);
    EXPECT_EQ(overlay.Status(), "Paused");
}

struct ErrorCase {
    const char* raw;
    const char* words;
};
void PrintTo(const ErrorCase& error, std::ostream* out) {
    *out << error.raw;
}
class ServiceError : public testing::TestWithParam<ErrorCase> {};
TEST_P(ServiceError, IsShownInTheWordsOfTheFirstRowThatIsFound) {
    EXPECT_EQ(WideToUtf8(MapServiceError(Utf8ToWide(GetParam().raw))), GetParam().words);
}
INSTANTIATE_TEST_SUITE_P(
    Captions, ServiceError,
    testing::Values(
        ErrorCase{"quota_exceeded", "⚠ Out of quota"},
        ErrorCase{"key_disabled and quota_exceeded", "⚠ Out of quota"},
        ErrorCase{"Server error 403: {\"detail\":\"key_not_found\"}", "⚠ Invalid key"},
        ErrorCase{"key_disabled", "⚠ Key disabled"},
        ErrorCase{"session_not_found", "Session expired — please restart"},
        ErrorCase{"internal_error", "Server internal error"},
        ErrorCase{"Quota_Exceeded", "Quota_Exceeded"},
        ErrorCase{"server_error_500", "server_error_500"}, ErrorCase{"", ""},
        ErrorCase{
            "12345678901234567890123456789012345678901234567890123456789012345678901234567890",
            "12345678901234567890123456789012345678901234567890123456789012345678901234567890"},
        ErrorCase{
            "123456789012345678901234567890123456789012345678901234567890123456789012345678901",
            "12345678901234567890123456789012345678901234567890123456789012345678901234567890"
            "…"}));

// ---- The transcript ----------------------------------------------------------------------------

// Runs are started without a service: each fails by itself, and the file stays open.
class Transcript : public testing::Test {
protected:
    Transcript() { RemoveTranscripts(); }
    // The only transcript, its times replaced.
    static std::string Text(const std::string& name) {
        return std::regex_replace(TranscriptText(name), std::regex("\\[\\d\\d:\\d\\d:\\d\\d\\]"),
                                  "[time]");
    }
    OverlayProbe overlay;
};

constexpr const char* kHeader = "\xEF\xBB\xBF# Translation Log  en-US -> zh-CN\r\n\r\n";

TEST_F(Transcript, HoldsEveryFinalCaptionFromTheFirstStartOnInOneFile) {
    overlay.Result("too early", "no file yet");
    overlay.Command(kStartButton);
    overlay.Result("one", "uno");
    overlay.Result("one and a", "…", false);
    overlay.Error("server_error_500");
    overlay.Result("two", "");
    overlay.Command(kStartButton);
    overlay.Command(kClearButton);
    overlay.Result("three 三", "tres\nlines");
    ASSERT_EQ(TranscriptNames().size(), 1u);
    EXPECT_EQ(Text(TranscriptNames()[0]), kHeader + std::string("[time]\r\none\r\nuno\r\n\r\n"
                                                                "[time]\r\ntwo\r\n\r\n\r\n"
                                                                "[time]\r\nthree 三\r\ntres\nlines"
                                                                "\r\n\r\n"));
    EXPECT_TRUE(std::regex_match(TranscriptNames()[0],
                                 std::regex("translation_en-US_zh-CN_\\d{8}_\\d{6}\\.txt")))
        << TranscriptNames()[0];
}

TEST_F(Transcript, OfAStartAfterAClearIsAnotherFileAlsoWithinTheSameSecond) {
    for (int i = 0; i < 4; ++i) {
        overlay.Command(kStartButton);
        overlay.Result("text " + std::to_string(i), "");
        overlay.Command(kClearButton);
    }
    const auto names = TranscriptNames();
    ASSERT_EQ(names.size(), 4u);
    std::string all;
    for (const auto& name : names) {
        EXPECT_EQ(Text(name).find(kHeader), 0u) << name;
        all += Text(name);
    }
    for (int i = 0; i < 4; ++i) {
        EXPECT_NE(all.find("[time]\r\ntext " + std::to_string(i) + "\r\n"), std::string::npos);
    }
}

// Not every system lets an open file be touched; where one does, nothing may be lost by it.
TEST_F(Transcript, IsThereAgainWithTheNextCaptionWhateverWasDoneToItsFile) {
    overlay.Command(kStartButton);
    const fs::path folder = TranscriptFolder();
    const fs::path file = folder / TranscriptNames().at(0);
    const std::function<void(std::error_code&)> deeds[] = {
        [&](auto& refused) { fs::remove(file, refused); },
        [&](auto& refused) { fs::rename(file, fs::path(file) += "~", refused); },
        [&](auto& refused) { fs::resize_file(file, 0, refused); },
        [&](auto& refused) { fs::remove_all(folder, refused); },
    };
    for (const auto& deed : deeds) {
        overlay.Result("before", "");
        std::error_code refused;
        deed(refused);
        overlay.Result("after", "the deed");
        const std::string text = Text(file.filename().string());
        EXPECT_EQ(text.find(kHeader), 0u) << text;
        EXPECT_EQ(text.rfind("[time]\r\nafter\r\nthe deed\r\n\r\n"), text.size() - 27) << text;
        EXPECT_EQ(text.find("before") == std::string::npos, !refused) << text;
    }
}

TEST_F(Transcript, GoesOnInTheCopyThatAnEditorHasPutInItsPlace) {
    overlay.Command(kStartButton);
    overlay.Result("one", "uno");
    const fs::path file = TranscriptFolder() / TranscriptNames().at(0);
    const fs::path copy = fs::path(file) += ".new";
    std::ofstream(copy, std::ios::binary)
        << TranscriptText(file.filename().string()) << "a note\r\n";
    std::error_code refused;
    fs::rename(copy, file, refused);
    overlay.Result("two", "dos");
    const std::string note = refused ? "" : "a note\r\n";
    EXPECT_EQ(Text(file.filename().string()),
              kHeader + ("[time]\r\none\r\nuno\r\n\r\n" + note + "[time]\r\ntwo\r\ndos\r\n\r\n"));
}

TEST_F(Transcript, GetsResultsThatWaitWhileTheProgramExits) {
    overlay.Command(kStartButton);
    TranslationResult last;
    last.original = TEXT("the last words");
    last.isFinal = true;
    PostResult(overlay.Window(), last);
    overlay.Exit();
    EXPECT_NE(Text(TranscriptNames().at(0)).find("the last words"), std::string::npos);
}

} // namespace

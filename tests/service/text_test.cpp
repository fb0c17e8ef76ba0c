// Pure text: Base64, spelling, what may go out to a client, the command line's options, the log.
#include "base64.h"
#include "caption_text.h"
#include "command_line.h"
#include "refused_keys.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

namespace service {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(Base64, ReadsWhatAnEncoderWrites) {
    EXPECT_EQ(DecodeBase64(""), Bytes{});
    EXPECT_EQ(DecodeBase64("/w=="), (Bytes{0xFF}));
    EXPECT_EQ(DecodeBase64("AAE="), (Bytes{0x00, 0x01}));
    EXPECT_EQ(DecodeBase64("+/+A"), (Bytes{0xFB, 0xFF, 0x80}));
    EXPECT_EQ(DecodeBase64("AAECAwQF"), (Bytes{0, 1, 2, 3, 4, 5}));
}

TEST(Base64, RefusesWhatNoEncoderWrites) {
    for (const char* const text : {"A", "AA", "AAA", "AAA*", "AA\nA", "AA=A", "====", "A===",
                                   "AA==AAAA", "AAE=AAE=", "/x==", "AAF=", "AA-_", " AAA"}) {
        EXPECT_EQ(DecodeBase64(text), std::nullopt) << text;
    }
}

TEST(CaptionText, SpellsTheEnglishIAndTheFirstLetterOnly) {
    EXPECT_EQ(SpellEnglish("i think i'm in it"), "I think I'm in it");
    EXPECT_EQ(SpellEnglish("he said i'll  go"), "He said I'll go");
    EXPECT_EQ(SpellEnglish(""), "");
}

TEST(CaptionText, CapitalizesLettersBeyondAsciiAndBehindOpeningMarks) {
    EXPECT_EQ(CapitalizeFirst("él va"), "Él va");
    EXPECT_EQ(CapitalizeFirst("¿cómo?"), "¿Cómo?");
    EXPECT_EQ(CapitalizeFirst("÷ 2"), "÷ 2");
    EXPECT_EQ(CapitalizeFirst("être"), "Être");
    EXPECT_EQ(CapitalizeFirst("¡"), "¡");
    EXPECT_EQ(CapitalizeFirst(""), "");
}

TEST(CaptionText, LeavesNothingThatAReaderWithoutEscapesWouldTripOver) {
    struct Case {
        std::string_view text;
        std::string_view presentable;
    };
    constexpr std::array kCases = {
        Case{"say \"yes\"", "say yes"},
        Case{"a{b}c\\d", "a b c d"},
        Case{"  two\t\n words\x7F ", "two words"},
        Case{"mañana 明日 😀", "mañana 明日 😀"},
        Case{"cut \xC3", "cut"},        // half a character
        Case{"\xC0\xA2x", "x"},         // an overlong quotation mark
        Case{"\xED\xA0\x80x", "x"},     // a surrogate
        Case{"\xF4\x90\x80\x80x", "x"}, // above the last character
        Case{"\xE4\xB8z", "z"},         // a letter where a continuation is due
        Case{std::string_view("a\0b", 3), "a b"},
        Case{"\"{}\"", ""},
    };
    for (const Case& sample : kCases) {
        EXPECT_EQ(Presentable(sample.text), sample.presentable) << sample.text;
    }
}

TEST(CommandLine, TakesValuesInBothFormsAndRefusesWhatItDoesNotKnow) {
    constexpr std::array kKnown = {Option{"--port", true}, Option{"--plain", false}};
    const auto parse = [&](std::vector<std::string_view> arguments) {
        return ParseCommandLine(arguments, kKnown);
    };
    const CommandLine line = parse({"serve", "--port", "80", "--plain", "more"});
    EXPECT_EQ(line.words, (std::vector<std::string>{"serve", "more"}));
    EXPECT_EQ(line.Value("--port"), "80");
    EXPECT_TRUE(line.Has("--plain"));
    EXPECT_EQ(parse({"--port=81"}).Value("--port"), "81");

    for (const auto& wrong : std::vector<std::vector<std::string_view>>{
             {"--prot", "80"}, {"--port"}, {"--plain=yes"}, {"--port=1", "--port=2"}}) {
        EXPECT_THROW(parse(wrong), UsageError) << wrong.front();
    }
    for (const char* const number : {"", "-1", "65536", "80x", "99999999999999999999"}) {
        EXPECT_THROW(ParseNumber("--port", number, 0, 65'535), UsageError) << number;
    }
}

TEST(RefusedKeysTest, TheBusiestAddressesGetALineEachAndTheOthersOneTogether) {
    RefusedKeys refused;
    for (int i = 0; i < 3000; ++i) {
        refused.Count("10.0." + std::to_string(i / 200) + "." + std::to_string(i % 200));
    }
    for (int i = 0; i < 7; ++i) {
        refused.Count("10.0.0.1");
    }
    testing::internal::CaptureStderr();
    refused.LogAndForget();
    refused.LogAndForget();
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::ranges::count(log, '\n'), 11) << log;
    EXPECT_NE(log.find("refused keys from 10.0.0.1: 8\n"), std::string::npos) << log;
    EXPECT_NE(log.find("refused keys from other addresses: 2990\n"), std::string::npos) << log;
}

} // namespace
} // namespace service

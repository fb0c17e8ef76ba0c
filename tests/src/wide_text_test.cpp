#include "wide_text.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

WideString Wide(std::initializer_list<int> units) {
    WideString text;
    for (const int unit : units) {
        text.push_back(static_cast<WCHAR>(unit));
    }
    return text;
}

TEST(WideText, PassesThroughUtf8WithoutLoss) {
    const std::string texts[] = {"",
                                 "a",
                                 "é",
                                 "ß€",
                                 "中文 (普通话)",
                                 "العربية",
                                 "ภาษาไทย",
                                 "😀 𝄞",
                                 std::string(5000, 'x') + "ü"};
    for (const std::string& text : texts) {
        EXPECT_EQ(WideToUtf8(Utf8ToWide(text)), text);
    }
    EXPECT_EQ(Utf8ToWide("😀"), Wide({0xD83D, 0xDE00}));
    EXPECT_EQ(Utf8ToWide("\x7F\xC2\x80\xE0\xA0\x80\xF4\x8F\xBF\xBF"),
              Wide({0x7F, 0x80, 0x800, 0xDBFF, 0xDFFF}));
}

TEST(WideText, LosesWhatStandsBehindAnEmbeddedZero) {
    EXPECT_EQ(Utf8ToWide(std::string("ab\0cd", 5)), TEXT("ab"));
    EXPECT_EQ(Utf8ToWide(std::string("\0cd", 3)), TEXT(""));
    EXPECT_EQ(WideToUtf8(WideString(TEXT("ab\0cd"), 5)), "ab");
}

TEST(WideText, ReadsMalformedTextAsReplacementCharacters) {
    const struct {
        const char* name;
        std::string bytes;
        WideString expected;
    } cases[] = {
        {"lone continuation", "a\x80z", Wide({'a', 0xFFFD, 'z'})},
        {"cut off before another character", "\xE4\xB8z", Wide({0xFFFD, 'z'})},
        {"cut off at the end", "a\xE4\xB8", Wide({'a', 0xFFFD})},
        {"byte that never occurs", "\xFFz", Wide({0xFFFD, 'z'})},
    };
    for (const auto& [name, bytes, expected] : cases) {
        EXPECT_EQ(Utf8ToWide(bytes), expected) << name;
    }
    for (const WideString& lone : {Wide({'a', 0xD83D, 'z'}), Wide({'a', 0xDE00, 'z'})}) {
        EXPECT_EQ(WideToUtf8(lone), "a\xEF\xBF\xBDz");
    }
    EXPECT_EQ(WideToUtf8(Wide({0xD83D})), "\xEF\xBF\xBD");
}

TEST(WideText, FormatsTheConversionsOfTheProgram) {
    WCHAR text[200];
    FormatWide(text, std::size(text), TEXT("%s|%d|%u|%lu|%llu|%02d|%03d|0x%08X|%%"),
               TEXT("wide 中"), -5, 4000000000u, 4294967295ul, 18446744073709551615ull, 7, 45,
               0x8889000Au);
    EXPECT_EQ(WideString(text),
              TEXT("wide 中|-5|4000000000|4294967295|18446744073709551615|07|045|0x8889000A|%"));
}

// The runtime of one of our systems leaves a cut text, and one that fits exactly, unterminated.
TEST(WideText, CutsAndTerminatesWhatDoesNotFit) {
    const struct {
        WideString text;
        WideString expected;
    } cases[] = {
        {TEXT("123"), TEXT("123")},
        {TEXT("1234567"), TEXT("1234567")},
        {TEXT("12345678"), TEXT("1234567")},
        {TEXT("123456789"), TEXT("1234567")},
        {WideString(100000, TEXT('x')), TEXT("xxxxxxx")},
    };
    for (const auto& [text, expected] : cases) {
        WCHAR buffer[10];
        std::fill(std::begin(buffer), std::end(buffer), TEXT('#'));
        FormatWide(buffer, 8, TEXT("%s"), text.c_str());
        EXPECT_EQ(WideString(buffer), expected);
        EXPECT_EQ(buffer[8], TEXT('#')) << "written behind the room";
    }
}

} // namespace

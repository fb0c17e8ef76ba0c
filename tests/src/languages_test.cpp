#include "languages.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

TEST(Languages, EveryLocaleResolvesToItsTarget) {
    const struct {
        const WCHAR* code;
        const WCHAR* target;
    } rows[] = {
        {TEXT("zh-CN"), TEXT("zh-Hans")}, {TEXT("zh-HK"), TEXT("zh-Hant")},
        {TEXT("en-US"), TEXT("en")},      {TEXT("en-GB"), TEXT("en")},
        {TEXT("en-IN"), TEXT("en")},      {TEXT("ja-JP"), TEXT("ja")},
        {TEXT("ko-KR"), TEXT("ko")},      {TEXT("fr-FR"), TEXT("fr")},
        {TEXT("de-DE"), TEXT("de")},      {TEXT("es-ES"), TEXT("es")},
        {TEXT("ru-RU"), TEXT("ru")},      {TEXT("ar-SA"), TEXT("ar")},
        {TEXT("pt-BR"), TEXT("pt")},      {TEXT("it-IT"), TEXT("it")},
        {TEXT("nl-NL"), TEXT("nl")},      {TEXT("pl-PL"), TEXT("pl")},
        {TEXT("th-TH"), TEXT("th")},      {TEXT("vi-VN"), TEXT("vi")},
        {TEXT("id-ID"), TEXT("id")},
    };
    ASSERT_EQ(kLanguageSources.size(), std::size(rows));
    for (std::size_t row = 0; row < std::size(rows); ++row) {
        EXPECT_EQ(kLanguageSources[row].code, rows[row].code) << "row " << row;
        EXPECT_EQ(ResolveTargetCode(kLanguageSources[row].code), rows[row].target) << row;
        EXPECT_TRUE(
            std::any_of(kLanguageTargets.begin(), kLanguageTargets.end(),
                        [&](const auto& target) { return target.code == rows[row].target; }))
            << row;
    }
}

TEST(Languages, UnknownLocalesPassAsTheirPrefix) {
    EXPECT_EQ(ResolveTargetCode(TEXT("zh-TW")), TEXT("zh"));
    EXPECT_EQ(ResolveTargetCode(TEXT("sv-SE")), TEXT("sv"));
    EXPECT_EQ(ResolveTargetCode(TEXT("fr")), TEXT("fr"));
    EXPECT_EQ(ResolveTargetCode(TEXT("")), TEXT(""));
    EXPECT_EQ(ResolveTargetCode(TEXT("-US")), TEXT(""));
}

} // namespace

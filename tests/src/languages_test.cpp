#include "languages.h"
#include "wide_text.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

TEST(Languages, EveryLocaleResolvesToATargetOnOffer) {
    for (const LanguageEntry& source : kLanguageSources) {
        const WideString target = ResolveTargetCode(source.code);
        EXPECT_TRUE(std::any_of(kLanguageTargets.begin(), kLanguageTargets.end(),
                                [&](const auto& offered) { return offered.code == target; }))
            << WideToUtf8(source.code);
    }
    EXPECT_EQ(ResolveTargetCode(TEXT("zh-CN")), TEXT("zh-Hans"));
    EXPECT_EQ(ResolveTargetCode(TEXT("zh-HK")), TEXT("zh-Hant"));
}

TEST(Languages, UnknownLocalesPassAsTheirPrefix) {
    EXPECT_EQ(ResolveTargetCode(TEXT("zh-TW")), TEXT("zh"));
    EXPECT_EQ(ResolveTargetCode(TEXT("sv-SE")), TEXT("sv"));
    EXPECT_EQ(ResolveTargetCode(TEXT("fr")), TEXT("fr"));
    EXPECT_EQ(ResolveTargetCode(TEXT("")), TEXT(""));
    EXPECT_EQ(ResolveTargetCode(TEXT("-US")), TEXT(""));
}

} // namespace

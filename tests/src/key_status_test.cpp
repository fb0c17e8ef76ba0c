#include "key_status.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

struct AnswerCase {
    const char* name;
    DWORD httpStatus;
    const char* body;
    KeyStatus status;
    const char* text;
    float share;
};
void PrintTo(const AnswerCase& answer, std::ostream* out) {
    *out << answer.name;
}
class KeyAnswer : public testing::TestWithParam<AnswerCase> {};
TEST_P(KeyAnswer, IsReadAndShown) {
    const KeyCheckResult result = ReadKeyAnswer(GetParam().httpStatus, GetParam().body);
    EXPECT_EQ(result.status, GetParam().status);
    EXPECT_EQ(WideToUtf8(KeyStatusText(result)), GetParam().text);
    EXPECT_FLOAT_EQ(UsedShare(result), GetParam().share);
}
INSTANTIATE_TEST_SUITE_P(
    Key, KeyAnswer,
    testing::Values(
        AnswerCase{"nothing came", 0, "", KeyStatusUnavailable, "Unable to fetch status", 0},
        AnswerCase{"another status with a good body", 500, R"({"valid":true})",
                   KeyStatusUnavailable, "Unable to fetch status", 0},
        AnswerCase{"an empty body", 200, "", KeyStatusUnavailable, "Unable to fetch status", 0},
        AnswerCase{"no JSON", 200, "<html>", KeyStatusInvalid, "Invalid key", 0},
        AnswerCase{"refused", 200, R"({"valid":false,"reason":"key_not_found"})", KeyStatusInvalid,
                   "Invalid key", 0},
        AnswerCase{"used up", 200, R"({"valid":false,"reason":"quota_exceeded"})",
                   KeyStatusQuotaExhausted, "Quota exhausted", 0},
        AnswerCase{"a longer reason", 200, R"({"valid":false,"reason":"quota_exceeded "})",
                   KeyStatusInvalid, "Invalid key", 0},
        AnswerCase{"valid whatever the reason", 200,
                   R"({"valid":true,"reason":"quota_exceeded","unlimited":true})", KeyStatusValid,
                   "Valid  ·  Unlimited", 0},
        AnswerCase{"under an hour in all", 200,
                   R"({"valid":true,"remaining_seconds":900,"total_used_seconds":900,)"
                   R"("initial_seconds":1800})",
                   KeyStatusValid, "Valid  ·  15 min left / 30 min total", 0.5F},
        AnswerCase{"little left of an hour", 200,
                   R"({"valid":true,"remaining_seconds":30,"total_used_seconds":3570,)"
                   R"("initial_seconds":3600})",
                   KeyStatusValid, "Valid  ·  0.0 h left / 1 h total", 3570.0F / 3600.0F},
        AnswerCase{"no numbers", 200, R"({"valid":true})", KeyStatusValid,
                   "Valid  ·  0 min left / 0 min total", 0},
        AnswerCase{"more used than there was", 200,
                   R"({"valid":true,"remaining_seconds":-60,"total_used_seconds":1e300,)"
                   R"("initial_seconds":60})",
                   KeyStatusValid, "Valid  ·  -1 min left / 1 min total", 1},
        AnswerCase{"negative use", 200,
                   R"({"valid":true,"total_used_seconds":-5,"initial_seconds":60})", KeyStatusValid,
                   "Valid  ·  0 min left / 1 min total", 0},
        AnswerCase{"numbers as strings", 200,
                   R"({"valid":true,"remaining_seconds":"5","initial_seconds":"9"})",
                   KeyStatusValid, "Valid  ·  0 min left / 0 min total", 0}));

TEST(Key, NumbersBeyondAllMeasureStayWithinTheirRoom) {
    for (const char* number : {"1e308", "1e999", "-1e308", "NaN", "Infinity"}) {
        const std::string body = std::string(R"({"valid":true,"remaining_seconds":)") + number +
                                 R"(,"total_used_seconds":)" + number + R"(,"initial_seconds":)" +
                                 number + "}";
        const KeyCheckResult result = ReadKeyAnswer(200, body);
        EXPECT_EQ(result.status, KeyStatusValid) << number;
        const WideString text = KeyStatusText(result);
        EXPECT_TRUE(text.starts_with(TEXT("Valid  ·  "))) << number;
        EXPECT_LT(text.size(), 96u) << number;
        const float share = UsedShare(result);
        EXPECT_TRUE(std::isnan(share) || (share >= 0 && share <= 1)) << number;
    }
}

TEST(Key, IsShownWithItsMiddleHiddenWhenItIsLongerThanTenCharacters) {
    EXPECT_EQ(WideToUtf8(ShortenedKey(TEXT("0123456789"))), "0123456789");
    EXPECT_EQ(WideToUtf8(ShortenedKey(TEXT("0123456789a"))), "01234···6789a");
    EXPECT_EQ(WideToUtf8(ShortenedKey(TEXT(""))), "");
}

TEST(Key, TheBandOfACheckEntersAndLeavesTheBarGradually) {
    const CheckingBand begin = CheckingBandAt(0, 16, 358);
    EXPECT_FLOAT_EQ(begin.gradientRight, 16);
    EXPECT_LE(begin.right - begin.left, 0);
    const CheckingBand entering = CheckingBandAt(0.05F, 16, 358);
    EXPECT_FLOAT_EQ(entering.left, 16);
    EXPECT_LT(entering.gradientLeft, 16);
    EXPECT_GT(entering.right, 16);
    const CheckingBand leaving = CheckingBandAt(0.95F, 16, 358);
    EXPECT_FLOAT_EQ(leaving.right, 16 + 358);
    EXPECT_NEAR(leaving.gradientRight - leaving.gradientLeft, 0.28F * 358, 0.01F);
}

} // namespace

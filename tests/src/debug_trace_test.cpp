#include "debug_trace.h"

#include "wide_text.h"

#include <gtest/gtest.h>

#include <regex>

namespace {

TEST(DebugTrace, PutsTheLocalTimeBeforeARunningLineAndNothingBeforeTheOthers) {
    testing::internal::CaptureStderr();
    DebugTrace(TEXT("[UI] started %s %d\n"), TEXT("now"), 3);
    EXPECT_TRUE(
        std::regex_match(testing::internal::GetCapturedStderr(),
                         std::regex(R"(\[\d\d:\d\d:\d\d\.\d\d\d\] \[UI\] started now 3\r?\n)")));

    testing::internal::CaptureStderr();
    AudioTrace(TEXT("[AUDIO] %u\n"), 1u);
    ProxyTrace(TEXT("[PROXY] %u\n"), 2u);
    TraceText(TEXT("100 %s\n")); // a fixed text is no format
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[AUDIO] 1\n[PROXY] 2\n100 %s\n");
}

// Error texts of the service reach the trace at any length.
TEST(DebugTrace, CutsATextThatIsLongerThanItsRoom) {
    const WideString endless(100000, TEXT('x'));
    testing::internal::CaptureStderr();
    AudioTrace(TEXT("%s"), endless.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(511, 'x'));
    testing::internal::CaptureStderr();
    ProxyTrace(TEXT("%s"), endless.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(1023, 'x'));
    testing::internal::CaptureStderr();
    DebugTrace(TEXT("%s"), endless.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStderr().size(), sizeof "[12:34:56.789] " - 1 + 1023);
}

} // namespace

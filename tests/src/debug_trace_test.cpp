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

// Error texts of the service reach the trace at any length; the next line must stand by itself.
TEST(DebugTrace, CutsATextThatIsLongerThanItsRoomAndKeepsItsLineEnd) {
    const WideString endless(100000, TEXT('x'));
    const auto traced = [&endless](const auto& trace, const WCHAR* format) {
        testing::internal::CaptureStderr();
        trace(format, endless.c_str());
        return testing::internal::GetCapturedStderr();
    };
    for (const auto& [trace, room] : {std::pair{&AudioTrace, 512}, std::pair{&ProxyTrace, 1024}}) {
        const auto fits = static_cast<std::size_t>(room - 1);
        EXPECT_EQ(traced(trace, TEXT("%s")), std::string(fits, 'x'));
        EXPECT_EQ(traced(trace, TEXT("%s\n")), std::string(fits - 1, 'x') + "\n");
        EXPECT_EQ(traced(trace, TEXT("%.9s\n")), "xxxxxxxxx\n");
    }
    const std::string line = traced(&DebugTrace, TEXT("%s\n"));
    EXPECT_EQ(line.substr(sizeof "[12:34:56.789] " - 1), std::string(1022, 'x') + "\n");
}

} // namespace

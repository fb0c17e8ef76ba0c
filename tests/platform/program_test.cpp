// The program as it is started: by itself, again, and many times at once.
#include "forked_child.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

// One start, with its trace in a file.
class Start {
public:
    explicit Start(const std::string& name)
        : trace_(std::string(std::getenv("HOME")) + "/" + name + ".trace"), child_([&](int) {
              const int trace = open(trace_.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
              dup2(trace, STDERR_FILENO);
              execl(KELVARIN_PROGRAM, KELVARIN_PROGRAM, nullptr);
              return 127;
          }) {}

    bool Says(const std::string& words) const {
        std::ifstream file(trace_);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        return text.find(words) != std::string::npos;
    }
    bool Saying(const std::string& words) const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!Says(words)) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5)); // it goes on meanwhile
        }
        return true;
    }
    int Wait() { return child_.Wait(); }
    void Kill() { child_.Kill(); }

private:
    std::string trace_;
    ForkedChild child_;
};

constexpr const char* kUp = "Entering message loop";
constexpr const char* kRefused = "Already running";

TEST(Program, ASecondStartEndsAndLeavesTheFirstOneAlone) {
    Start first("first");
    ASSERT_TRUE(first.Saying(kUp));
    for (const char* name : {"second", "third"}) {
        Start again(name);
        EXPECT_EQ(again.Wait(), 0);
        EXPECT_TRUE(again.Says(kRefused));
        EXPECT_FALSE(again.Says(kUp));
    }
    EXPECT_FALSE(first.Says("Exiting"));
    first.Kill(); // as a crash does
    Start after("after");
    EXPECT_TRUE(after.Saying(kUp));
}

TEST(Program, OfManyStartsAtOnceExactlyOneStays) {
    std::vector<std::unique_ptr<Start>> starts;
    for (int i = 0; i < 6; ++i) {
        starts.push_back(std::make_unique<Start>("start" + std::to_string(i)));
    }
    int up = 0;
    for (const auto& start : starts) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!start->Says(kUp) && !start->Says(kRefused)) {
            ASSERT_LT(std::chrono::steady_clock::now(), end);
            std::this_thread::sleep_for(std::chrono::milliseconds(5)); // they go on meanwhile
        }
        up += start->Says(kUp) ? 1 : 0;
    }
    EXPECT_EQ(up, 1);
}

} // namespace

// Gives a test program a home of its own, so that its settings, transcripts and running instances
// are nobody else's, and windows that need no screen.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace {

class PrivateHome : public testing::Environment {
public:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "kelvarin-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no private folder for the tests");
        }
        home_ = pattern;
        std::filesystem::create_directory(home_ / "Desktop");
        for (const char* variable : {"HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"}) {
            setenv(variable, pattern.c_str(), 1);
        }
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    }
    void TearDown() override {
        std::error_code ignored;
        std::filesystem::remove_all(home_, ignored);
    }

private:
    std::filesystem::path home_;
};

const testing::Environment* const registered =
    testing::AddGlobalTestEnvironment(new PrivateHome); // gtest owns it

} // namespace

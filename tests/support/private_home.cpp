// Linked into a program, gives it a home of its own, so that its settings, transcripts and running
// instances are nobody else's, and windows that need no screen unless it is told of one.
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace {

class PrivateHome {
public:
    PrivateHome() {
        std::string pattern = (std::filesystem::temp_directory_path() / "kelvarin-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no private folder");
        }
        home_ = pattern;
        std::filesystem::create_directory(home_ / "Desktop");
        for (const char* variable : {"HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"}) {
            setenv(variable, pattern.c_str(), 1);
        }
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
    }
    ~PrivateHome() {
        std::error_code ignored;
        std::filesystem::remove_all(home_, ignored);
    }
    PrivateHome(const PrivateHome&) = delete;
    PrivateHome& operator=(const PrivateHome&) = delete;

private:
    std::filesystem::path home_;
};

const PrivateHome home;

} // namespace

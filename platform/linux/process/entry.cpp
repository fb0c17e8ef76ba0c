// Where the process begins: what Windows sets up before it calls the program's wWinMain.
#include <windows.h>
#include <fcntl.h>
#include <unistd.h>

#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace {

// A descriptor of a standard stream that is not open would go to the next file that is opened, and
// the trace would then be written into that.
void OpenStandardStreams() {
    int opened = -1;
    do {
        opened = open("/dev/null", O_RDWR);
    } while (opened >= 0 && opened <= STDERR_FILENO);
    if (opened > STDERR_FILENO) {
        close(opened);
    }
}

// A service or a terminal that goes away shows as a failed write. A handler that is already there
// stays.
void IgnoreBrokenPipes() {
    struct sigaction former {};
    if (sigaction(SIGPIPE, nullptr, &former) == 0 && former.sa_handler == SIG_DFL) {
        std::signal(SIGPIPE, SIG_IGN);
    }
}

// Input methods need the user's characters; without a usable locale, at least UTF-8.
void TakeUsersCharacters() {
    if (std::setlocale(LC_CTYPE, "") == nullptr) {
        std::setlocale(LC_CTYPE, "C.UTF-8");
    }
}

constexpr int kShowDefault = 10; // SW_SHOWDEFAULT

} // namespace

int main() {
    OpenStandardStreams();
    IgnoreBrokenPipes();
    TakeUsersCharacters();
    WCHAR commandLine[] = {0};
    const int result = wWinMain(GetModuleHandleW(nullptr), nullptr, commandLine, kShowDefault);
    // Threads of a run may still be at work, and end here as they do on Windows: before anything
    // that they use is torn down, which an ordinary exit would do under their feet.
    std::fflush(nullptr);
    std::_Exit(result);
}

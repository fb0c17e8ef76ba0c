// Where the process begins: what Windows sets up before it calls the program's wWinMain.
#include "process/broken_pipes.h"

#include <windows.h>
#include <fcntl.h>
#include <unistd.h>

#include <clocale>
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
    process::IgnoreBrokenPipes(); // a service or a terminal may go away
    TakeUsersCharacters();
    WCHAR commandLine[] = {0};
    const int result = wWinMain(GetModuleHandleW(nullptr), nullptr, commandLine, kShowDefault);
    // Threads of a run may still be at work, and end here as they do on Windows: before anything
    // that they use is torn down, which an ordinary exit would do under their feet.
    std::fflush(nullptr);
    std::_Exit(result);
}

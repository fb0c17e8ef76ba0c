// A program of the layer's entry: tells its test how the process is set up.
#include "platform/forked_child.h"

#include <windows.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE /*previous*/, LPWSTR commandLine,
                    int /*showCommand*/) {
    const char* const told = std::getenv("KELVARIN_PROBE_REPORT");
    if (told == nullptr) {
        return EXIT_FAILURE;
    }
    const int report = std::atoi(told);
    ForkedChild::Tell(report, open("/dev/zero", O_RDONLY));
    int ends[2] = {};
    if (pipe(ends) != 0 || close(ends[0]) != 0 || instance == nullptr || *commandLine != 0) {
        return EXIT_FAILURE;
    }
    ForkedChild::Tell(report, write(ends[1], "x", 1) == -1 ? errno : 0);
    return 7;
}

// The other end of scripts/screenshots: says what is to be seen where, and waits until its picture
// has been taken.
#pragma once

#include <windows.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>

namespace scene {

// Whether a line of input has come, which is then taken.
inline bool LineHasCome() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (poll(&input, 1, 0) <= 0) {
        return false;
    }
    char c = 0;
    while (read(STDIN_FILENO, &c, 1) == 1 && c != '\n') {
    }
    return true;
}

// "NAME LEFT TOP WIDTH HEIGHT" on the screen.
inline void Print(const char* name, const RECT& area) {
    std::printf("%s %d %d %d %d\n", name, area.left, area.top, area.right - area.left,
                area.bottom - area.top);
    std::fflush(stdout);
}

} // namespace scene

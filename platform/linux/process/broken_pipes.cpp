#include "process/broken_pipes.h"

#include <csignal>

namespace process {

void IgnoreBrokenPipes() {
    struct sigaction former {};
    if (sigaction(SIGPIPE, nullptr, &former) == 0 && former.sa_handler == SIG_DFL) {
        std::signal(SIGPIPE, SIG_IGN);
    }
}

} // namespace process

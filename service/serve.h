// The command that serves: puts the rooms together, and follows signals.
#pragma once

#include "command_line.h"

namespace service {

// Serves until SIGTERM or SIGINT and gives the exit code. Throws UsageError for a command line that
// cannot be meant and std::runtime_error when serving cannot begin.
int Serve(const CommandLine& line);

} // namespace service

// The commands by which an administrator sees to access keys, beside a service that runs or not.
#pragma once

#include "command_line.h"

namespace service {

// All throw UsageError for what cannot be meant and std::runtime_error for what fails, and give the
// exit code 0 otherwise. A key is named by its whole text, its name or its first letters as the
// list shows them; `-` reads it from the standard input.
int AddKey(const CommandLine& line);
int ListKeys(const CommandLine& line);
int DisableKey(const CommandLine& line);
int EnableKey(const CommandLine& line);
int RemoveKey(const CommandLine& line);
int GrantKey(const CommandLine& line);
int LimitKey(const CommandLine& line);

} // namespace service

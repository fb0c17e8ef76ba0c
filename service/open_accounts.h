// Which accounts a command line means: the database that is named, or a file.
#pragma once

#include "accounts.h"
#include "command_line.h"

#include <chrono>
#include <memory>

namespace service {

// Those of --accounts or, in the file of --settings, of ACCOUNTS: a URL that begins with
// postgresql://. Without either the file of --database, or the usual one. Throws UsageError for
// another URL and AccountsFailure when they cannot be opened.
std::unique_ptr<Accounts>
OpenAccounts(const CommandLine& line, std::chrono::milliseconds patience = std::chrono::seconds(5));

} // namespace service

// The accounts of one computer: an SQLite file.
#pragma once

#include "accounts.h"

#include <chrono>
#include <filesystem>
#include <memory>

namespace service {

// Makes the file, readable by its owner alone, if there is none, and brings one of a former release
// to the present form. Writing waits for other processes for as long as `patience`. Throws
// AccountsFailure.
std::unique_ptr<Accounts>
OpenSqliteAccounts(const std::filesystem::path& file,
                   std::chrono::milliseconds patience = std::chrono::seconds(5));

} // namespace service

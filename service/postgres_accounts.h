// The accounts that several computers share: a PostgreSQL database.
#pragma once

#include "accounts.h"

#include <chrono>
#include <memory>
#include <string>

namespace service {

// `url` begins with postgresql://, in the form that PostgreSQL's own programs take. Makes the
// tables where there are none. No statement and no attempt to connect waits longer than `patience`,
// beyond what resolving the host's name takes; while the database is known to be lost, each
// operation tries to reach it again, at most twice a second. Throws AccountsFailure, whose texts
// never have the URL's password.
std::unique_ptr<Accounts>
OpenPostgresAccounts(const std::string& url,
                     std::chrono::milliseconds patience = std::chrono::seconds(5));

} // namespace service

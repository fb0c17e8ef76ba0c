// The accounts that several computers share: a PostgreSQL database.
#pragma once

#include "accounts.h"

#include <chrono>
#include <memory>
#include <string>

namespace service {

// `url` begins with postgresql://, in the form that PostgreSQL's own programs take. Makes the
// tables where there are none. No operation waits for the database longer than `patience`, and none
// longer than a moment while it is known to be lost; each tries to reach it again. Throws
// AccountsFailure, whose texts never have the URL's password.
std::unique_ptr<Accounts>
OpenPostgresAccounts(const std::string& url,
                     std::chrono::milliseconds patience = std::chrono::seconds(5));

} // namespace service

#include "open_accounts.h"

#include "data_folder.h"
#include "postgres_accounts.h"
#include "settings.h"
#include "sqlite_accounts.h"

namespace service {

std::unique_ptr<Accounts> OpenAccounts(const CommandLine& line,
                                       std::chrono::milliseconds patience) {
    const auto url = WithSettingsFile(line).Value("--accounts");
    if (!url) {
        return OpenSqliteAccounts(AccountsFile(line), patience);
    }
    if (!url->starts_with("postgresql://")) {
        throw UsageError("accounts are a URL that begins with postgresql://");
    }
    return OpenPostgresAccounts(*url, patience);
}

} // namespace service

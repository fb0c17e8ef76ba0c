// The access keys and their quotas, in one SQLite file. Knows nothing of sessions or HTTP.
#pragma once

#include "refusal.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;

namespace service {

struct Account {
    std::string key;
    bool disabled = false;
    bool unlimited = false;
    std::int64_t initialMs = 0; // of audio, granted in all
    std::int64_t usedMs = 0;

    std::int64_t RemainingMs() const { return initialMs > usedMs ? initialMs - usedMs : 0; }
};

// Why audio of this account is not taken; `None` when it is.
Refusal RefusalOf(const std::optional<Account>& account);

// A key goes into a URL and into JSON as it stands: letters, digits and `-._~`, at most 255.
bool IsUsableKey(std::string_view key);

// Any thread; several processes may have the file open. Failures of the file are thrown as
// std::runtime_error. What has been written survives the end of the process at any moment.
class Accounts {
public:
    // Makes the file, readable by its owner alone, if there is none.
    explicit Accounts(const std::filesystem::path& file);

    std::optional<Account> Find(std::string_view key);
    std::vector<Account> List();

    // The operations below give false when the key is already there, or not there.
    bool Add(const Account& account);
    bool SetDisabled(std::string_view key, bool disabled);
    bool Grant(std::string_view key, std::int64_t ms);
    bool GrantUnlimited(std::string_view key);
    bool Charge(std::string_view key, std::int64_t ms);

private:
    struct CloseDatabase {
        void operator()(sqlite3* database) const;
    };

    std::mutex mutex_; // guards the one connection; held for one statement
    std::unique_ptr<sqlite3, CloseDatabase> database_;
};

} // namespace service

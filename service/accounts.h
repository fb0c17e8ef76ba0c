// The access keys and their quotas, in one SQLite file. Of a key the file holds the hash and the
// first letters, so that whoever reads the file has no key. Knows nothing of sessions or HTTP.
#pragma once

#include "refusal.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;

namespace service {

// What stands for a key wherever it is kept or compared: SHA-256, in hexadecimal digits.
struct KeyHash {
    std::string digits;
    bool operator==(const KeyHash&) const = default;
    bool operator<(const KeyHash& other) const { return digits < other.digits; } // for maps
};
KeyHash HashOf(std::string_view key);

struct Account {
    std::string keyStart; // the key's first letters, to tell it apart in lists
    std::string name;     // whose it is, in the administrator's words; may be empty
    bool disabled = false;
    bool unlimited = false;
    std::int64_t initialMs = 0; // of audio, granted in all
    std::int64_t usedMs = 0;
    std::int64_t sessions = 2; // at the same time

    std::int64_t RemainingMs() const { return initialMs > usedMs ? initialMs - usedMs : 0; }
};

struct ListedAccount {
    KeyHash key;
    Account account;
};

struct Usage {
    KeyHash key;
    std::int64_t ms = 0; // of audio
};

// Why audio of this account is not taken; `None` when it is.
Refusal RefusalOf(const std::optional<Account>& account);

// A key goes into a URL and into JSON as it stands: letters, digits and `-._~`, at most 255.
bool IsUsableKey(std::string_view key);

// What `keyStart` of an account shows of this key.
std::string StartOf(std::string_view key);

// Any thread; several processes may have the file open. Failures of the file are thrown as
// std::runtime_error. What has been written survives the end of the process at any moment.
class Accounts {
public:
    // Makes the file, readable by its owner alone, if there is none, and brings one of a former
    // release to the present form. Writing waits for other processes for as long as `patience`.
    explicit Accounts(const std::filesystem::path& file,
                      std::chrono::milliseconds patience = std::chrono::seconds(5));

    // Waits for nobody who writes.
    std::optional<Account> Find(const KeyHash& key);

    std::vector<ListedAccount> List();

    // The key that is meant by its whole text, by its name or by its first letters as a list shows
    // them; nothing when there is none. Throws when there are several.
    std::optional<KeyHash> Resolve(std::string_view text);

    // The operations below give false when the key is already there, or not there.
    bool Add(const KeyHash& key, const Account& account); // also when the name is taken
    bool Remove(const KeyHash& key);
    bool SetDisabled(const KeyHash& key, bool disabled);
    bool SetSessions(const KeyHash& key, std::int64_t sessions);
    bool Grant(const KeyHash& key, std::int64_t ms); // false for an unlimited key, too
    bool GrantUnlimited(const KeyHash& key);
    bool Limit(const KeyHash& key, std::int64_t ms); // so much is left from now on

    // All or, when it throws, nothing. What keys have used that are no longer there is dropped.
    void Charge(std::span<const Usage> usages);

private:
    struct CloseDatabase {
        void operator()(sqlite3* database) const;
    };
    using Database = std::unique_ptr<sqlite3, CloseDatabase>;

    static Database Open(const std::filesystem::path& file, std::chrono::milliseconds patience);

    // Two connections, so that nobody who asks waits for a disk that is slow to store.
    std::mutex readMutex_; // guards reader_; held for one statement
    Database reader_;
    std::mutex writeMutex_; // guards writer_; held for one transaction
    Database writer_;
};

} // namespace service

// The access keys and their quotas: one face, whichever database keeps them. Of a key it holds the
// hash and the first letters, so that whoever reads it has no key. Knows nothing of sessions or
// HTTP.
#pragma once

#include "refusal.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

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
    std::int64_t sessions = 2; // at the same time, on each computer that serves
    std::int64_t heldMs = 0;   // of the quota, kept for now by others who serve the same key

    std::int64_t RemainingMs() const {
        return initialMs > usedMs + heldMs ? initialMs - usedMs - heldMs : 0;
    }
};

struct ListedAccount {
    KeyHash key;
    Account account;
};

struct Usage {
    KeyHash key;
    std::int64_t ms = 0;     // of audio, used since the last bill
    std::int64_t wantMs = 0; // to be kept for it until the next one, where others serve it too
};

// What one who serves has used in one go. Numbers rise.
struct Bill {
    std::uint64_t number = 0;
    std::vector<Usage> usages; // by key, in ascending order, each key once
};

// The database cannot be reached, or cannot store.
class AccountsFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Why audio of this account is not taken; `None` when it is.
Refusal RefusalOf(const std::optional<Account>& account);

// A key goes into a URL and into JSON as it stands: letters, digits and `-._~`, at most 255.
bool IsUsableKey(std::string_view key);

// What `keyStart` of an account shows of this key.
std::string StartOf(std::string_view key);

// Any thread; several processes may work on the same accounts. What fails throws AccountsFailure.
// What has been written survives the end of the process at any moment.
class Accounts {
public:
    Accounts() = default;
    Accounts(const Accounts&) = delete;
    Accounts& operator=(const Accounts&) = delete;
    virtual ~Accounts() = default;

    // The accounts are of this computer: to find one takes so little that it need not be
    // remembered.
    virtual bool AreNear() const = 0;

    virtual std::optional<Account> Find(const KeyHash& key) = 0;

    virtual std::vector<ListedAccount> List() = 0;

    // The key that is meant by its whole text, by its name or by its first letters as a list shows
    // them; nothing when there is none. Throws when there are several.
    virtual std::optional<KeyHash> Resolve(std::string_view text) = 0;

    // The operations below give false when the key is already there, or not there.
    virtual bool Add(const KeyHash& key, const Account& account) = 0; // also: the name is taken
    virtual bool Remove(const KeyHash& key) = 0;
    virtual bool SetDisabled(const KeyHash& key, bool disabled) = 0;
    virtual bool SetSessions(const KeyHash& key, std::int64_t sessions) = 0;
    virtual bool Grant(const KeyHash& key, std::int64_t ms) = 0; // also: the key is unlimited
    virtual bool GrantUnlimited(const KeyHash& key) = 0;
    virtual bool Limit(const KeyHash& key, std::int64_t ms) = 0; // so much is left from now on

    // One caller's. Stores all of a bill or nothing, and gives the accounts of its keys as they are
    // then; keys that are no longer there are left out, and what they have used is dropped. When it
    // throws, nobody may know which it was: the same bill is handed in again then, and counts once.
    // A bill of nothing tells whether there is a connection.
    virtual std::vector<ListedAccount> Settle(const Bill& bill) = 0;
};

} // namespace service

#include "sql_accounts.h"

#include <array>
#include <charconv>
#include <utility>

namespace service {
namespace {

const std::string kSelect = std::string("SELECT") + kAccountColumns + "FROM keys ";

std::int64_t Flag(bool value) {
    return value ? 1 : 0;
}

} // namespace

SqlTransaction::SqlTransaction(SqlConnection& connection, const char* begin)
    : connection_(connection) {
    connection_.Run(begin);
}

SqlTransaction::~SqlTransaction() {
    if (!open_) {
        return;
    }
    try {
        connection_.Run("ROLLBACK");
    } catch (const AccountsFailure&) {
        // What has ended the connection, or the transaction with it, has undone it as well.
        return;
    }
}

void SqlTransaction::Commit() {
    connection_.Run("COMMIT");
    open_ = false;
}

std::int64_t SqlNumber(const std::string& text) {
    std::int64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

ListedAccount ReadAccount(const SqlResult::Row& row) {
    return {{row[7]},
            {row[0], row[1], row[2] != "0", row[3] != "0", SqlNumber(row[4]), SqlNumber(row[5]),
             SqlNumber(row[6])}};
}

bool InsertAccount(SqlConnection& connection, const KeyHash& key, const Account& account) {
    return connection
               .Run("INSERT INTO keys VALUES(?1, ?2, nullif(?3, ''), ?4, ?5, ?6, ?7, ?8)"
                    " ON CONFLICT DO NOTHING",
                    {key.digits, account.keyStart, account.name, Flag(account.disabled),
                     Flag(account.unlimited), account.initialMs, account.usedMs, account.sessions})
               .changed == 1;
}

SqlResult SqlAccounts::FindRow(SqlConnection& connection, const KeyHash& key) {
    return connection.Run(kSelect + "WHERE key_hash = ?1", {key.digits});
}

std::optional<Account> SqlAccounts::Find(const KeyHash& key) {
    const Use connection = Ask();
    const SqlResult found = FindRow(*connection, key);
    if (found.rows.empty()) {
        return std::nullopt;
    }
    const SqlResult::Row& row = found.rows[0];
    Account account = ReadAccount(row).account;
    constexpr std::size_t kHeld = 8; // where others hold quota
    account.heldMs = row.size() > kHeld ? SqlNumber(row[kHeld]) : 0;
    return account;
}

std::vector<ListedAccount> SqlAccounts::List() {
    const Use connection = Ask();
    std::vector<ListedAccount> accounts;
    for (const auto& row :
         connection->Run(kSelect + "ORDER BY name IS NULL, name, key_start").rows) {
        accounts.push_back(ReadAccount(row));
    }
    return accounts;
}

std::optional<KeyHash> SqlAccounts::Resolve(std::string_view text) {
    const Use connection = Ask();
    const std::string hash = HashOf(text).digits;
    const std::array<std::pair<const char*, std::string_view>, 3> ways = {{
        {"SELECT key_hash FROM keys WHERE key_hash = ?1", hash},
        {"SELECT key_hash FROM keys WHERE name = ?1", text},
        {"SELECT key_hash FROM keys WHERE key_start = ?1", text},
    }};
    for (const auto& [sql, value] : ways) {
        const SqlResult found = connection->Run(sql, {value});
        if (found.rows.size() > 1) {
            throw AccountsFailure("several keys begin with these letters");
        }
        if (!found.rows.empty()) {
            return KeyHash{found.rows[0][0]};
        }
    }
    return std::nullopt;
}

bool SqlAccounts::Add(const KeyHash& key, const Account& account) {
    const Use connection = Store();
    return InsertAccount(*connection, key, account);
}

bool SqlAccounts::ChangesOne(const char* sql, std::initializer_list<SqlValue> values) {
    const Use connection = Store();
    return connection->Run(sql, values).changed == 1;
}

bool SqlAccounts::Remove(const KeyHash& key) {
    return ChangesOne("DELETE FROM keys WHERE key_hash = ?1", {key.digits});
}

bool SqlAccounts::SetDisabled(const KeyHash& key, bool disabled) {
    return ChangesOne("UPDATE keys SET disabled = ?2 WHERE key_hash = ?1",
                      {key.digits, Flag(disabled)});
}

bool SqlAccounts::SetSessions(const KeyHash& key, std::int64_t sessions) {
    return ChangesOne("UPDATE keys SET sessions = ?2 WHERE key_hash = ?1", {key.digits, sessions});
}

bool SqlAccounts::Grant(const KeyHash& key, std::int64_t ms) {
    return ChangesOne("UPDATE keys SET initial_ms = initial_ms + ?2"
                      " WHERE key_hash = ?1 AND unlimited = 0",
                      {key.digits, ms});
}

bool SqlAccounts::GrantUnlimited(const KeyHash& key) {
    return ChangesOne("UPDATE keys SET unlimited = 1 WHERE key_hash = ?1", {key.digits});
}

bool SqlAccounts::Limit(const KeyHash& key, std::int64_t ms) {
    return ChangesOne("UPDATE keys SET unlimited = 0, initial_ms = used_ms + ?2"
                      " WHERE key_hash = ?1",
                      {key.digits, ms});
}

} // namespace service

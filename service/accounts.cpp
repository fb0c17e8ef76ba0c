#include "accounts.h"

#include "file_descriptor.h"

#include <fcntl.h>
#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <initializer_list>
#include <stdexcept>
#include <system_error>
#include <variant>

namespace service {
namespace {

// The connection's own message names tables and files, never a bound value: keys stay out of it.
[[noreturn]] void Fail(sqlite3* database) {
    throw std::runtime_error(std::string("accounts: ") + sqlite3_errmsg(database));
}

// One prepared statement with its values bound; steps through its rows.
class Statement {
public:
    using Value = std::variant<std::int64_t, std::string_view>;

    Statement(sqlite3* database, const char* sql, std::initializer_list<Value> values = {})
        : database_(database) {
        if (sqlite3_prepare_v2(database, sql, -1, &statement_, nullptr) != SQLITE_OK) {
            Fail(database);
        }
        int position = 0;
        for (const Value& value : values) {
            Bind(++position, value);
        }
    }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    ~Statement() { sqlite3_finalize(statement_); }

    bool Step() {
        const int result = sqlite3_step(statement_);
        if (result != SQLITE_ROW && result != SQLITE_DONE) {
            Fail(database_);
        }
        return result == SQLITE_ROW;
    }

    std::int64_t Number(int column) const { return sqlite3_column_int64(statement_, column); }

    std::string Text(int column) const {
        const auto* const text = sqlite3_column_text(statement_, column);
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
        return {reinterpret_cast<const char*>(text), size};
    }

private:
    void Bind(int position, const Value& value) {
        if (const auto* const number = std::get_if<std::int64_t>(&value)) {
            sqlite3_bind_int64(statement_, position, *number);
            return;
        }
        const auto& text = std::get<std::string_view>(value);
        sqlite3_bind_text(statement_, position, text.data(), static_cast<int>(text.size()),
                          SQLITE_TRANSIENT);
    }

    sqlite3* database_;
    sqlite3_stmt* statement_ = nullptr;
};

constexpr const char* kSchema = "CREATE TABLE IF NOT EXISTS accounts("
                                " access_key TEXT PRIMARY KEY,"
                                " disabled INTEGER NOT NULL DEFAULT 0,"
                                " unlimited INTEGER NOT NULL DEFAULT 0,"
                                " initial_ms INTEGER NOT NULL DEFAULT 0 CHECK(initial_ms >= 0),"
                                " used_ms INTEGER NOT NULL DEFAULT 0 CHECK(used_ms >= 0)"
                                ") STRICT, WITHOUT ROWID";

constexpr int kBusyTimeoutMs = 5000; // another process of this program is writing

// SQLite gives its side files the mode of this one. Closed before SQLite opens it: closing any
// descriptor of a file gives up all locks that the process has on it, and then the next process to
// close the file takes itself for the last one and removes the log that is still written to.
void MakeFile(const std::filesystem::path& file) {
    const FileDescriptor made(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!made) {
        throw std::system_error(errno, std::generic_category(),
                                "cannot open the accounts in " + file.string());
    }
}

std::int64_t Flag(bool value) {
    return value ? 1 : 0;
}

bool ChangesOne(sqlite3* database, const char* sql,
                std::initializer_list<Statement::Value> values) {
    Statement(database, sql, values).Step();
    return sqlite3_changes(database) == 1;
}

Account ReadAccount(const Statement& row) {
    return {row.Text(0), row.Number(1) != 0, row.Number(2) != 0, row.Number(3), row.Number(4)};
}

} // namespace

Refusal RefusalOf(const std::optional<Account>& account) {
    if (!account) {
        return Refusal::KeyNotFound;
    }
    if (account->disabled) {
        return Refusal::KeyDisabled;
    }
    if (!account->unlimited && account->RemainingMs() == 0) {
        return Refusal::QuotaExceeded;
    }
    return Refusal::None;
}

bool IsUsableKey(std::string_view key) {
    constexpr std::size_t kLongestKey = 255;
    constexpr std::string_view kMarks = "-._~";
    return !key.empty() && key.size() <= kLongestKey &&
           std::ranges::all_of(key, [&](unsigned char character) {
               return std::isalnum(character) != 0 ||
                      kMarks.find(static_cast<char>(character)) != kMarks.npos;
           });
}

void Accounts::CloseDatabase::operator()(sqlite3* database) const {
    sqlite3_close_v2(database);
}

Accounts::Accounts(const std::filesystem::path& file) {
    MakeFile(file);
    sqlite3* database = nullptr;
    const int result = sqlite3_open_v2(file.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr);
    database_.reset(database);
    if (result != SQLITE_OK) {
        Fail(database);
    }
    sqlite3_busy_timeout(database, kBusyTimeoutMs);
    // With a write-ahead log, NORMAL loses nothing when the process dies; only a power cut can take
    // the last exchanges' billing, and the file stays sound.
    for (const char* const sql :
         {"PRAGMA journal_mode=WAL", "PRAGMA synchronous=NORMAL", kSchema}) {
        Statement(database, sql).Step();
    }
}

std::optional<Account> Accounts::Find(std::string_view key) {
    const std::lock_guard lock(mutex_);
    Statement found(database_.get(),
                    "SELECT access_key, disabled, unlimited, initial_ms, used_ms FROM accounts"
                    " WHERE access_key = ?1",
                    {key});
    if (!found.Step()) {
        return std::nullopt;
    }
    return ReadAccount(found);
}

std::vector<Account> Accounts::List() {
    const std::lock_guard lock(mutex_);
    Statement rows(database_.get(),
                   "SELECT access_key, disabled, unlimited, initial_ms, used_ms FROM accounts"
                   " ORDER BY access_key");
    std::vector<Account> accounts;
    while (rows.Step()) {
        accounts.push_back(ReadAccount(rows));
    }
    return accounts;
}

bool Accounts::Add(const Account& account) {
    const std::lock_guard lock(mutex_);
    return ChangesOne(database_.get(),
                      "INSERT INTO accounts(access_key, disabled, unlimited, initial_ms, used_ms)"
                      " VALUES(?1, ?2, ?3, ?4, ?5) ON CONFLICT DO NOTHING",
                      {account.key, Flag(account.disabled), Flag(account.unlimited),
                       account.initialMs, account.usedMs});
}

bool Accounts::SetDisabled(std::string_view key, bool disabled) {
    const std::lock_guard lock(mutex_);
    return ChangesOne(database_.get(), "UPDATE accounts SET disabled = ?2 WHERE access_key = ?1",
                      {key, Flag(disabled)});
}

bool Accounts::Grant(std::string_view key, std::int64_t ms) {
    const std::lock_guard lock(mutex_);
    return ChangesOne(database_.get(),
                      "UPDATE accounts SET unlimited = 0, initial_ms = initial_ms + ?2"
                      " WHERE access_key = ?1",
                      {key, ms});
}

bool Accounts::GrantUnlimited(std::string_view key) {
    const std::lock_guard lock(mutex_);
    return ChangesOne(database_.get(), "UPDATE accounts SET unlimited = 1 WHERE access_key = ?1",
                      {key});
}

bool Accounts::Charge(std::string_view key, std::int64_t ms) {
    const std::lock_guard lock(mutex_);
    return ChangesOne(database_.get(),
                      "UPDATE accounts SET used_ms = used_ms + ?2 WHERE access_key = ?1",
                      {key, ms});
}

} // namespace service

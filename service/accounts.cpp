#include "accounts.h"

#include "file_descriptor.h"
#include "random_token.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <initializer_list>
#include <stdexcept>
#include <system_error>
#include <utility>
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

// In the file as its user_version; 0 is a new file, or one of the releases that kept whole keys.
constexpr std::int64_t kFormat = 2;

constexpr const char* kSchema = "CREATE TABLE keys("
                                " key_hash TEXT PRIMARY KEY,"
                                " key_start TEXT NOT NULL,"
                                " name TEXT UNIQUE,"
                                " disabled INTEGER NOT NULL DEFAULT 0,"
                                " unlimited INTEGER NOT NULL DEFAULT 0,"
                                " initial_ms INTEGER NOT NULL DEFAULT 0 CHECK(initial_ms >= 0),"
                                " used_ms INTEGER NOT NULL DEFAULT 0 CHECK(used_ms >= 0),"
                                " sessions INTEGER NOT NULL DEFAULT 2 CHECK(sessions >= 1)"
                                ") STRICT, WITHOUT ROWID";

constexpr const char* kSelect = "SELECT key_start, name, disabled, unlimited, initial_ms, used_ms,"
                                " sessions, key_hash FROM keys ";

// Readers wait for writers only while a log that a killed process has left is taken over.
constexpr int kReadPatienceMs = 100;

constexpr std::size_t kShownLetters = 5; // of a key

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

void Run(sqlite3* database, const char* sql) {
    Statement(database, sql).Step();
}

bool ChangesOne(sqlite3* database, const char* sql,
                std::initializer_list<Statement::Value> values) {
    Statement(database, sql, values).Step();
    return sqlite3_changes(database) == 1;
}

// Undone unless it comes to its `Commit`.
class Transaction {
public:
    explicit Transaction(sqlite3* database) : database_(database) {
        Run(database_, "BEGIN IMMEDIATE");
    }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction() {
        if (sqlite3_get_autocommit(database_) == 0) {
            sqlite3_exec(database_, "ROLLBACK", nullptr, nullptr, nullptr);
        }
    }
    void Commit() { Run(database_, "COMMIT"); }

private:
    sqlite3* database_;
};

Account ReadAccount(const Statement& row) {
    return {row.Text(0),   row.Text(1),   row.Number(2) != 0, row.Number(3) != 0,
            row.Number(4), row.Number(5), row.Number(6)};
}

std::int64_t FormatOf(sqlite3* database) {
    Statement version(database, "PRAGMA user_version");
    version.Step();
    return version.Number(0);
}

bool InsertAccount(sqlite3* database, const KeyHash& key, const Account& account) {
    return ChangesOne(database,
                      "INSERT INTO keys VALUES(?1, ?2, nullif(?3, ''), ?4, ?5, ?6, ?7, ?8)"
                      " ON CONFLICT DO NOTHING",
                      {key.digits, account.keyStart, account.name, Flag(account.disabled),
                       Flag(account.unlimited), account.initialMs, account.usedMs,
                       account.sessions});
}

// A file of the releases that kept whole keys has them in a table `accounts`.
void TakeOverWholeKeys(sqlite3* database) {
    Statement table(database, "SELECT 1 FROM sqlite_schema WHERE name = 'accounts'");
    if (!table.Step()) {
        return;
    }
    Statement rows(database, "SELECT access_key, disabled, unlimited, initial_ms, used_ms"
                             " FROM accounts");
    while (rows.Step()) {
        const std::string key = rows.Text(0);
        InsertAccount(database, HashOf(key),
                      {StartOf(key), "", rows.Number(1) != 0, rows.Number(2) != 0, rows.Number(3),
                       rows.Number(4)});
    }
}

void BringToPresentForm(sqlite3* database, const std::filesystem::path& file) {
    const auto refuseLater = [&] {
        if (FormatOf(database) > kFormat) {
            throw std::runtime_error("the accounts in " + file.string() +
                                     " are of a later release of this program");
        }
    };
    refuseLater();
    if (FormatOf(database) == kFormat) {
        return;
    }
    Run(database, "PRAGMA secure_delete=ON"); // no whole key is left in what becomes free
    {
        Transaction transaction(database);
        refuseLater();
        if (FormatOf(database) == kFormat) {
            return; // another process was faster
        }
        Run(database, kSchema);
        TakeOverWholeKeys(database);
        Run(database, "DROP TABLE IF EXISTS accounts");
        Run(database, ("PRAGMA user_version=" + std::to_string(kFormat)).c_str());
        transaction.Commit();
    }
    Run(database, "PRAGMA wal_checkpoint(TRUNCATE)"); // nor in the log
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

KeyHash HashOf(std::string_view key) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned int size = 0;
    if (EVP_Digest(key.data(), key.size(), bytes.data(), &size, EVP_sha256(), nullptr) != 1) {
        throw std::runtime_error("a key cannot be hashed");
    }
    return {HexDigits(std::span(bytes).first(size))};
}

std::string StartOf(std::string_view key) {
    return std::string(key.substr(0, kShownLetters));
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

Accounts::Database Accounts::Open(const std::filesystem::path& file,
                                  std::chrono::milliseconds patience) {
    sqlite3* opened = nullptr;
    const int result = sqlite3_open_v2(file.c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
    Database database(opened);
    if (result != SQLITE_OK) {
        Fail(opened);
    }
    sqlite3_busy_timeout(opened, static_cast<int>(patience.count()));
    // With a write-ahead log, NORMAL loses nothing when the process dies; only a power cut can take
    // the last seconds' billing, and the file stays sound.
    for (const char* const sql : {"PRAGMA journal_mode=WAL", "PRAGMA synchronous=NORMAL"}) {
        Run(opened, sql);
    }
    return database;
}

Accounts::Accounts(const std::filesystem::path& file, std::chrono::milliseconds patience) {
    MakeFile(file);
    writer_ = Open(file, patience);
    BringToPresentForm(writer_.get(), file);
    reader_ = Open(file, patience);
    sqlite3_busy_timeout(reader_.get(), kReadPatienceMs);
}

std::optional<Account> Accounts::Find(const KeyHash& key) {
    const std::lock_guard lock(readMutex_);
    Statement found(reader_.get(), (std::string(kSelect) + "WHERE key_hash = ?1").c_str(),
                    {key.digits});
    if (!found.Step()) {
        return std::nullopt;
    }
    return ReadAccount(found);
}

std::vector<ListedAccount> Accounts::List() {
    const std::lock_guard lock(readMutex_);
    Statement rows(reader_.get(),
                   (std::string(kSelect) + "ORDER BY name IS NULL, name, key_start").c_str());
    std::vector<ListedAccount> accounts;
    while (rows.Step()) {
        accounts.push_back({{rows.Text(7)}, ReadAccount(rows)});
    }
    return accounts;
}

std::optional<KeyHash> Accounts::Resolve(std::string_view text) {
    const std::lock_guard lock(readMutex_);
    const std::string hash = HashOf(text).digits;
    const std::array<std::pair<const char*, std::string_view>, 3> ways = {{
        {"SELECT key_hash FROM keys WHERE key_hash = ?1", hash},
        {"SELECT key_hash FROM keys WHERE name = ?1", text},
        {"SELECT key_hash FROM keys WHERE key_start = ?1", text},
    }};
    for (const auto& [sql, value] : ways) {
        Statement found(reader_.get(), sql, {value});
        if (!found.Step()) {
            continue;
        }
        KeyHash key{found.Text(0)};
        if (found.Step()) {
            throw std::runtime_error("several keys begin with these letters");
        }
        return key;
    }
    return std::nullopt;
}

bool Accounts::Add(const KeyHash& key, const Account& account) {
    const std::lock_guard lock(writeMutex_);
    return InsertAccount(writer_.get(), key, account);
}

bool Accounts::Remove(const KeyHash& key) {
    const std::lock_guard lock(writeMutex_);
    return ChangesOne(writer_.get(), "DELETE FROM keys WHERE key_hash = ?1", {key.digits});
}

bool Accounts::SetDisabled(const KeyHash& key, bool disabled) {
    const std::lock_guard lock(writeMutex_);
    return ChangesOne(writer_.get(), "UPDATE keys SET disabled = ?2 WHERE key_hash = ?1",
                      {key.digits, Flag(disabled)});
}

bool Accounts::SetSessions(const KeyHash& key, std::int64_t sessions) {
    const std::lock_guard lock(writeMutex_);
    return ChangesOne(writer_.get(), "UPDATE keys SET sessions = ?2 WHERE key_hash = ?1",
                      {key.digits, sessions});
}

bool Accounts::Grant(const KeyHash& key, std::int64_t ms) {
    const std::lock_guard lock(writeMutex_);
    return ChangesOne(writer_.get(),
                      "UPDATE keys SET initial_ms = initial_ms + ?2"
                      " WHERE key_hash = ?1 AND NOT unlimited",
                      {key.digits, ms});
}

bool Accounts::GrantUnlimited(const KeyHash& key) {
    const std::lock_guard lock(writeMutex_);
    return ChangesOne(writer_.get(), "UPDATE keys SET unlimited = 1 WHERE key_hash = ?1",
                      {key.digits});
}

bool Accounts::Limit(const KeyHash& key, std::int64_t ms) {
    const std::lock_guard lock(writeMutex_);
    return ChangesOne(writer_.get(),
                      "UPDATE keys SET unlimited = 0, initial_ms = used_ms + ?2"
                      " WHERE key_hash = ?1",
                      {key.digits, ms});
}

void Accounts::Charge(std::span<const Usage> usages) {
    const std::lock_guard lock(writeMutex_);
    Transaction transaction(writer_.get());
    for (const Usage& usage : usages) {
        ChangesOne(writer_.get(), "UPDATE keys SET used_ms = used_ms + ?2 WHERE key_hash = ?1",
                   {usage.key.digits, usage.ms});
    }
    transaction.Commit();
}

} // namespace service

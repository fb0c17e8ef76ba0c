#include "sqlite_accounts.h"

#include "file_descriptor.h"
#include "sql_accounts.h"

#include <fcntl.h>
#include <sqlite3.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace service {
namespace {

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

constexpr const char* kBegin = "BEGIN IMMEDIATE";

// Readers wait for writers only while a log that a killed process has left is taken over.
constexpr auto kReadPatience = std::chrono::milliseconds(100);

// The connection's own message names tables and files, never a bound value: keys stay out of it.
[[noreturn]] void Fail(sqlite3* database) {
    throw AccountsFailure(std::string("accounts: ") + sqlite3_errmsg(database));
}

class SqliteConnection : public SqlConnection {
public:
    SqliteConnection(const std::filesystem::path& file, std::chrono::milliseconds patience) {
        sqlite3* opened = nullptr;
        const int result = sqlite3_open_v2(file.c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
        database_.reset(opened);
        if (result != SQLITE_OK) {
            Fail(opened);
        }
        SetPatience(patience);
        // With a write-ahead log, NORMAL loses nothing when the process dies; only a power cut can
        // take the last seconds' billing, and the file stays sound.
        for (const char* const sql : {"PRAGMA journal_mode=WAL", "PRAGMA synchronous=NORMAL"}) {
            SqliteConnection::Run(sql);
        }
    }

    void SetPatience(std::chrono::milliseconds patience) {
        sqlite3_busy_timeout(database_.get(), static_cast<int>(patience.count()));
    }

    SqlResult Run(const std::string& sql, std::initializer_list<SqlValue> values = {}) override {
        sqlite3_stmt* prepared = nullptr;
        if (sqlite3_prepare_v2(database_.get(), sql.c_str(), -1, &prepared, nullptr) != SQLITE_OK) {
            Fail(database_.get());
        }
        const std::unique_ptr<sqlite3_stmt, Finalize> statement(prepared);
        int position = 0;
        for (const SqlValue& value : values) {
            Bind(prepared, ++position, value);
        }
        SqlResult result;
        while (Step(prepared)) {
            result.rows.push_back(ReadRow(prepared));
        }
        result.changed = sqlite3_changes(database_.get());
        return result;
    }

private:
    struct Close {
        void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
    };
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };

    static void Bind(sqlite3_stmt* statement, int position, const SqlValue& value) {
        if (const auto* const number = std::get_if<std::int64_t>(&value)) {
            sqlite3_bind_int64(statement, position, *number);
            return;
        }
        const auto& text = std::get<std::string_view>(value);
        sqlite3_bind_text(statement, position, text.data(), static_cast<int>(text.size()),
                          SQLITE_TRANSIENT);
    }

    bool Step(sqlite3_stmt* statement) {
        const int result = sqlite3_step(statement);
        if (result != SQLITE_ROW && result != SQLITE_DONE) {
            Fail(database_.get());
        }
        return result == SQLITE_ROW;
    }

    static SqlResult::Row ReadRow(sqlite3_stmt* statement) {
        SqlResult::Row row;
        for (int column = 0; column < sqlite3_column_count(statement); ++column) {
            const auto* const text = sqlite3_column_text(statement, column);
            const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
            row.emplace_back(reinterpret_cast<const char*>(text), size);
        }
        return row;
    }

    std::unique_ptr<sqlite3, Close> database_;
};

// SQLite gives its side files the mode of this one. Closed before SQLite opens it: closing any
// descriptor of a file gives up all locks that the process has on it, and then the next process to
// close the file takes itself for the last one and removes the log that is still written to.
void MakeFile(const std::filesystem::path& file) {
    const FileDescriptor made(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!made) {
        throw AccountsFailure("cannot open the accounts in " + file.string() + ": " +
                              std::generic_category().message(errno));
    }
}

std::int64_t FormatOf(SqlConnection& database) {
    return SqlNumber(database.Run("PRAGMA user_version").rows.at(0).at(0));
}

// A file of the releases that kept whole keys has them in a table `accounts`.
void TakeOverWholeKeys(SqlConnection& database) {
    if (database.Run("SELECT 1 FROM sqlite_schema WHERE name = 'accounts'").rows.empty()) {
        return;
    }
    for (const auto& row : database
                               .Run("SELECT access_key, disabled, unlimited, initial_ms, used_ms"
                                    " FROM accounts")
                               .rows) {
        InsertAccount(database, HashOf(row[0]),
                      {StartOf(row[0]), "", row[1] != "0", row[2] != "0", SqlNumber(row[3]),
                       SqlNumber(row[4])});
    }
}

void BringToPresentForm(SqlConnection& database, const std::filesystem::path& file) {
    const auto refuseLater = [&] {
        if (FormatOf(database) > kFormat) {
            throw AccountsFailure("the accounts in " + file.string() +
                                  " are of a later release of this program");
        }
    };
    refuseLater();
    if (FormatOf(database) == kFormat) {
        return;
    }
    database.Run("PRAGMA secure_delete=ON"); // no whole key is left in what becomes free
    {
        SqlTransaction transaction(database, kBegin);
        refuseLater();
        if (FormatOf(database) == kFormat) {
            return; // another process was faster
        }
        database.Run(kSchema);
        TakeOverWholeKeys(database);
        database.Run("DROP TABLE IF EXISTS accounts");
        database.Run("PRAGMA user_version=" + std::to_string(kFormat));
        transaction.Commit();
    }
    database.Run("PRAGMA wal_checkpoint(TRUNCATE)"); // nor in the log
}

// A bill that could not be stored has left nothing behind, so its number need not be kept. Others
// who serve the same file see what was used up to its last bill.
class SqliteAccounts : public SqlAccounts {
public:
    using SqlAccounts::SqlAccounts;

    bool AreNear() const override { return true; }

    std::vector<ListedAccount> Settle(const Bill& bill) override {
        if (bill.usages.empty()) {
            return {};
        }
        const Use connection = Store();
        SqlTransaction transaction(*connection, kBegin);
        std::vector<ListedAccount> accounts;
        for (const Usage& usage : bill.usages) {
            const SqlResult result =
                connection->Run(std::string("UPDATE keys SET used_ms = used_ms + ?2"
                                            " WHERE key_hash = ?1 RETURNING") +
                                    kAccountColumns,
                                {usage.key.digits, usage.ms});
            if (!result.rows.empty()) {
                accounts.push_back(ReadAccount(result.rows[0]));
            }
        }
        transaction.Commit();
        return accounts;
    }
};

} // namespace

std::unique_ptr<Accounts> OpenSqliteAccounts(const std::filesystem::path& file,
                                             std::chrono::milliseconds patience) {
    MakeFile(file);
    auto storing = std::make_unique<SqliteConnection>(file, patience);
    BringToPresentForm(*storing, file);
    auto asking = std::make_unique<SqliteConnection>(file, patience);
    asking->SetPatience(kReadPatience);
    return std::make_unique<SqliteAccounts>(std::move(asking), std::move(storing));
}

} // namespace service

#include "registry/value_store.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string_view>

namespace registry {
namespace {

constexpr int kBusyTimeoutMs = 250; // another process is writing: microseconds, if it is alive

constexpr const char* kReadSql = "SELECT type, data FROM registry_values WHERE name = ?1";
constexpr const char* kWriteSql =
    "INSERT INTO registry_values(name, type, data) VALUES(?1, ?2, ?3)"
    " ON CONFLICT(name) DO UPDATE SET type = excluded.type, data = excluded.data";
constexpr const char* kSchemaSql =
    "CREATE TABLE IF NOT EXISTS registry_values("
    " name TEXT PRIMARY KEY COLLATE NOCASE, type INTEGER NOT NULL, data BLOB NOT NULL"
    ") STRICT, WITHOUT ROWID";

// Write-ahead mode appends each change without waiting for the disk; only the moves into the
// database itself, every thousand changes and at the end, wait for it. Two processes that make the
// file together may both miss the mode; the store then works too, only slower, until it is opened
// again.
constexpr const char* kModeSql = "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL";

bool IsDamage(int result) {
    // A plain error is a database of another shape.
    return result == SQLITE_NOTADB || result == SQLITE_CORRUPT || result == SQLITE_ERROR;
}

// Folders on the way included. SQLite gives its side files the mode of the file.
void MakePrivately(const std::string& path) {
    for (std::size_t end = path.find('/', 1); end != std::string::npos;
         end = path.find('/', end + 1)) {
        mkdir(path.substr(0, end).c_str(), 0700);
    }
    // Only a new file is opened here: closing a second descriptor of one that SQLite has open would
    // drop SQLite's locks.
    const int made = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (made >= 0) {
        close(made);
        return;
    }
    struct stat facts {};
    if (stat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode) && (facts.st_mode & 077) != 0) {
        chmod(path.c_str(), facts.st_mode & 0700);
    }
}

void PutAside(const std::string& path) {
    std::rename(path.c_str(), (path + ".damaged").c_str());
    for (const char* side : {"-wal", "-shm", "-journal"}) {
        unlink((path + side).c_str());
    }
}

// Names a file that cannot change: SQLite then needs neither locks nor side files, which it could
// not make in a folder that cannot be written to.
std::string ImmutableName(const std::string& path) {
    constexpr std::string_view kPlain =
        "/-_.~abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::string name = "file:";
    for (const char byte : path) {
        if (kPlain.find(byte) != std::string_view::npos) {
            name += byte;
            continue;
        }
        char escaped[4];
        std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned char>(byte));
        name += escaped;
    }
    return name + "?immutable=1";
}

// Makes a statement usable again; what it holds of its caller's memory is not used after that.
class StatementUse {
public:
    explicit StatementUse(sqlite3_stmt* statement) : statement_(statement) {}
    StatementUse(const StatementUse&) = delete;
    StatementUse& operator=(const StatementUse&) = delete;
    ~StatementUse() {
        sqlite3_reset(statement_);
        sqlite3_clear_bindings(statement_);
    }

private:
    sqlite3_stmt* statement_;
};

void BindText(sqlite3_stmt* statement, int position, const std::string& text) {
    sqlite3_bind_text(statement, position, text.data(), static_cast<int>(text.size()),
                      SQLITE_STATIC);
}

} // namespace

void ValueStore::CloseDatabase::operator()(sqlite3* database) const {
    sqlite3_close(database);
}

void ValueStore::FinalizeStatement::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

std::unique_ptr<ValueStore> ValueStore::Open(const std::string& path) {
    std::unique_ptr<ValueStore> store(new ValueStore);
    MakePrivately(path);
    int result = store->Begin(path, SQLITE_OPEN_READWRITE);
    if (IsDamage(result)) {
        store->End();
        PutAside(path);
        MakePrivately(path);
        result = store->Begin(path, SQLITE_OPEN_READWRITE);
    }
    if (result == SQLITE_CANTOPEN || result == SQLITE_READONLY) {
        result = store->Begin(ImmutableName(path), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
    }
    return result == SQLITE_OK ? std::move(store) : nullptr;
}

int ValueStore::Begin(const std::string& name, int flags) {
    End();
    sqlite3* opened = nullptr;
    const int result = sqlite3_open_v2(name.c_str(), &opened, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    database_.reset(opened);
    if (result != SQLITE_OK) {
        return result;
    }
    sqlite3_busy_timeout(opened, kBusyTimeoutMs);
    if (sqlite3_db_readonly(opened, "main") == 0) {
        sqlite3_exec(opened, kModeSql, nullptr, nullptr, nullptr);
        const int made = sqlite3_exec(opened, kSchemaSql, nullptr, nullptr, nullptr);
        if (made != SQLITE_OK) {
            return made;
        }
    }
    const int checked = Check();
    if (checked != SQLITE_OK) {
        return checked;
    }
    const int prepared = Prepare(read_, kReadSql);
    return prepared == SQLITE_OK ? Prepare(write_, kWriteSql) : prepared;
}

void ValueStore::End() {
    read_.reset();
    write_.reset();
    database_.reset(); // which would refuse to close while there are statements
}

// A damaged page would else show only when its value is asked for. There are a handful of pages.
int ValueStore::Check() {
    Statement check;
    if (const int prepared = Prepare(check, "PRAGMA quick_check(1)"); prepared != SQLITE_OK) {
        return prepared;
    }
    const int result = sqlite3_step(check.get());
    if (result != SQLITE_ROW) {
        return result;
    }
    const auto* const verdict = reinterpret_cast<const char*>(sqlite3_column_text(check.get(), 0));
    return verdict != nullptr && std::string_view(verdict) == "ok" ? SQLITE_OK : SQLITE_CORRUPT;
}

int ValueStore::Prepare(Statement& statement, const char* sql) {
    sqlite3_stmt* prepared = nullptr;
    const int result = sqlite3_prepare_v2(database_.get(), sql, -1, &prepared, nullptr);
    statement.reset(prepared);
    return result;
}

std::optional<Value> ValueStore::Read(const std::string& name) {
    sqlite3_stmt* const statement = read_.get();
    const StatementUse use(statement);
    BindText(statement, 1, name);
    if (sqlite3_step(statement) != SQLITE_ROW) {
        return std::nullopt;
    }
    const auto type = static_cast<DWORD>(sqlite3_column_int64(statement, 0));
    const auto* const data = static_cast<const BYTE*>(sqlite3_column_blob(statement, 1));
    const auto bytes = static_cast<std::size_t>(sqlite3_column_bytes(statement, 1));
    return Value{type, {data, data + bytes}};
}

bool ValueStore::Write(const std::string& name, DWORD type, const BYTE* data, DWORD bytes) {
    sqlite3_stmt* const statement = write_.get();
    const StatementUse use(statement);
    BindText(statement, 1, name);
    sqlite3_bind_int64(statement, 2, type);
    // A null pointer would make it SQL's NULL, which is not a value of no bytes.
    sqlite3_bind_blob64(statement, 3, bytes == 0 ? "" : static_cast<const void*>(data), bytes,
                        SQLITE_STATIC);
    return sqlite3_step(statement) == SQLITE_DONE;
}

} // namespace registry

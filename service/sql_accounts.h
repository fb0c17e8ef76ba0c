// The accounts in SQL that every database of ours understands. Knows no database by name.
#pragma once

#include "accounts.h"

#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>
#include <variant>
#include <vector>

namespace service {

using SqlValue = std::variant<std::int64_t, std::string_view>;

struct SqlResult {
    using Row = std::vector<std::string>;
    std::vector<Row> rows;    // NULL as an empty text
    std::int64_t changed = 0; // rows, by a statement that gives none
};

// Used by one thread at a time.
class SqlConnection {
public:
    SqlConnection() = default;
    SqlConnection(const SqlConnection&) = delete;
    SqlConnection& operator=(const SqlConnection&) = delete;
    virtual ~SqlConnection() = default;

    // Connects again when the connection is known to be lost. Before each operation, never within
    // a transaction.
    virtual void Renew() {}

    // One statement; its values stand as ?1, ?2 and so on. Throws AccountsFailure.
    virtual SqlResult Run(const std::string& sql, std::initializer_list<SqlValue> values = {}) = 0;
};

// Undone unless it comes to its `Commit`.
class SqlTransaction {
public:
    SqlTransaction(SqlConnection& connection, const char* begin);
    SqlTransaction(const SqlTransaction&) = delete;
    SqlTransaction& operator=(const SqlTransaction&) = delete;
    ~SqlTransaction();
    void Commit();

private:
    SqlConnection& connection_;
    bool open_ = true;
};

// What `ReadAccount` takes its columns from, and its key the last one.
inline constexpr const char* kAccountColumns =
    " key_start, name, disabled, unlimited, initial_ms, used_ms, sessions, key_hash ";
ListedAccount ReadAccount(const SqlResult::Row& row);

std::int64_t SqlNumber(const std::string& text);

bool InsertAccount(SqlConnection& connection, const KeyHash& key, const Account& account);

class SqlAccounts : public Accounts {
public:
    // Two connections, so that nobody who asks waits for a disk that is slow to store.
    SqlAccounts(std::unique_ptr<SqlConnection> asking, std::unique_ptr<SqlConnection> storing)
        : asking_(std::move(asking)), storing_(std::move(storing)) {}

    std::optional<Account> Find(const KeyHash& key) override;
    std::vector<ListedAccount> List() override;
    std::optional<KeyHash> Resolve(std::string_view text) override;
    bool Add(const KeyHash& key, const Account& account) override;
    bool Remove(const KeyHash& key) override;
    bool SetDisabled(const KeyHash& key, bool disabled) override;
    bool SetSessions(const KeyHash& key, std::int64_t sessions) override;
    bool Grant(const KeyHash& key, std::int64_t ms) override;
    bool GrantUnlimited(const KeyHash& key) override;
    bool Limit(const KeyHash& key, std::int64_t ms) override;

protected:
    // The use of a connection, renewed and for one operation.
    class Use {
    public:
        Use(std::mutex& mutex, SqlConnection& connection) : lock_(mutex), connection_(connection) {
            connection_.Renew();
        }
        SqlConnection& operator*() const { return connection_; }
        SqlConnection* operator->() const { return &connection_; }

    private:
        std::lock_guard<std::mutex> lock_;
        SqlConnection& connection_;
    };
    Use Ask() { return {askMutex_, *asking_}; }
    Use Store() { return {storeMutex_, *storing_}; }

    // The account as it is found; a database where others hold quota asks for that, too.
    virtual SqlResult FindRow(SqlConnection& connection, const KeyHash& key);

private:
    bool ChangesOne(const char* sql, std::initializer_list<SqlValue> values);

    std::mutex askMutex_; // guards asking_; held for one operation
    std::unique_ptr<SqlConnection> asking_;
    std::mutex storeMutex_; // guards storing_; held for one operation
    std::unique_ptr<SqlConnection> storing_;
};

} // namespace service

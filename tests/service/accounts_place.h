// Where a test's accounts are: in a file, or in a database of its own.
#pragma once

#include "postgres_accounts.h"
#include "private_postgres.h"
#include "scratch_folder.h"
#include "sqlite_accounts.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <memory>
#include <ostream>
#include <string>
#include <utility>

namespace service {

enum class Database { Sqlite, Postgres };

inline void PrintTo(Database database, std::ostream* stream) {
    *stream << (database == Database::Sqlite ? "SQLite" : "PostgreSQL");
}

inline std::string NameOf(const testing::TestParamInfo<Database>& database) {
    return database.param == Database::Sqlite ? "Sqlite" : "Postgres";
}

class AccountsPlace {
public:
    explicit AccountsPlace(Database database) : database_(database) {
        if (database == Database::Postgres) {
            url_ = PrivatePostgres::Shared().MakeDatabase();
        }
    }
    AccountsPlace(const AccountsPlace&) = delete;
    AccountsPlace& operator=(const AccountsPlace&) = delete;
    ~AccountsPlace() { GiveBack(); }

    std::unique_ptr<Accounts>
    Open(std::chrono::milliseconds patience = std::chrono::seconds(5)) const {
        return database_ == Database::Sqlite ? OpenSqliteAccounts(File(), patience)
                                             : OpenPostgresAccounts(url_, patience);
    }

    bool IsNear() const { return database_ == Database::Sqlite; }
    std::filesystem::path File() const { return folder_ / "accounts.db"; }
    const std::string& Url() const { return url_; }

    void Execute(const std::string& statement) const {
        if (database_ == Database::Postgres) {
            PrivatePostgres::Shared().Execute(url_, statement);
            return;
        }
        sqlite3* opened = nullptr;
        ASSERT_EQ(sqlite3_open(File().c_str(), &opened), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(opened, statement.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(opened);
        sqlite3_close(opened);
    }

    // Nobody can store any more: another program has the file locked, or the server is gone.
    void TakeAway() {
        taken_ = true;
        if (database_ == Database::Postgres) {
            PrivatePostgres::Shared().Stop();
            return;
        }
        ASSERT_EQ(sqlite3_open(File().c_str(), &other_), SQLITE_OK);
        sqlite3_exec(other_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    }

    void GiveBack() {
        if (!std::exchange(taken_, false)) {
            return;
        }
        if (database_ == Database::Postgres) {
            PrivatePostgres::Shared().Start();
            return;
        }
        sqlite3_close(std::exchange(other_, nullptr));
    }

private:
    const Database database_;
    const ScratchFolder folder_;
    std::string url_;
    sqlite3* other_ = nullptr; // holds the lock
    bool taken_ = false;
};

} // namespace service

#include "postgres_accounts.h"

#include "random_token.h"
#include "sql_accounts.h"

#include <libpq-fe.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <utility>
#include <vector>

namespace service {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// In a table of its own, as the database has no place for it.
constexpr std::int64_t kFormat = 1;

// A number that others' locks will not have: only one process at a time makes the tables.
constexpr const char* kLockSchema = "SELECT pg_advisory_xact_lock(7065462)";

// Flags are numbers, so that the same statements do for every database.
constexpr std::array kSchema = {
    "CREATE TABLE kelvarin_format(format bigint NOT NULL)",
    "CREATE TABLE keys("
    " key_hash text PRIMARY KEY,"
    " key_start text NOT NULL,"
    " name text UNIQUE,"
    " disabled bigint NOT NULL DEFAULT 0,"
    " unlimited bigint NOT NULL DEFAULT 0,"
    " initial_ms bigint NOT NULL DEFAULT 0 CHECK(initial_ms >= 0),"
    " used_ms bigint NOT NULL DEFAULT 0 CHECK(used_ms >= 0),"
    " sessions bigint NOT NULL DEFAULT 2 CHECK(sessions >= 1))",
    // What each payer keeps of a key's quota until its next bill, or for as long as it may be late.
    "CREATE TABLE holds("
    " key_hash text NOT NULL REFERENCES keys ON DELETE CASCADE,"
    " payer text NOT NULL,"
    " ms bigint NOT NULL,"
    " ends timestamptz NOT NULL,"
    " PRIMARY KEY(key_hash, payer))",
    // The last bill of each payer, so that one that is handed in again counts once.
    "CREATE TABLE bills("
    " payer text PRIMARY KEY,"
    " number bigint NOT NULL,"
    " stored timestamptz NOT NULL)",
};

constexpr const char* kBegin = "BEGIN";

// After a failure to connect, nobody else waits for another one for so long.
constexpr auto kBetweenTries = 500ms;

struct Finish {
    void operator()(PGconn* connection) const { PQfinish(connection); }
};
struct Clear {
    void operator()(PGresult* result) const { PQclear(result); }
};
using Result = std::unique_ptr<PGresult, Clear>;

// The library's messages end with a line break, and may have several lines.
std::string OneLine(std::string text) {
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    std::ranges::replace(text, '\n', ' ');
    return text;
}

class PostgresConnection : public SqlConnection {
public:
    PostgresConnection(std::string url, std::chrono::milliseconds patience)
        : url_(std::move(url)), patience_(patience) {}

    void Renew() override {
        if (connection_ && IsAlive()) {
            return;
        }
        connection_.reset();
        if (Clock::now() < nextTry_) {
            throw AccountsFailure(lastFailure_);
        }
        try {
            Connect();
        } catch (const AccountsFailure& failure) {
            connection_.reset();
            lastFailure_ = failure.what();
            nextTry_ = Clock::now() + kBetweenTries;
            throw;
        }
    }

    SqlResult Run(const std::string& sql, std::initializer_list<SqlValue> values = {}) override {
        if (!connection_) {
            throw AccountsFailure("accounts: the connection to the database was lost");
        }
        std::vector<std::string> texts;
        std::vector<const char*> pointers;
        for (const SqlValue& value : values) {
            const auto* const number = std::get_if<std::int64_t>(&value);
            texts.emplace_back(number != nullptr ? std::to_string(*number)
                                                 : std::string(std::get<std::string_view>(value)));
        }
        std::ranges::transform(texts, std::back_inserter(pointers),
                               [](const std::string& text) { return text.c_str(); });
        std::string numbered = sql;
        std::ranges::replace(numbered, '?', '$'); // how this database writes a value's place
        const auto latest = Clock::now() + patience_;
        if (PQsendQueryParams(connection_.get(), numbered.c_str(), static_cast<int>(texts.size()),
                              nullptr, pointers.data(), nullptr, nullptr, 0) != 1) {
            Fail();
        }
        Result last;
        while (Result next = NextResult(latest)) {
            last = std::move(next);
        }
        return Read(last);
    }

private:
    // A server that has ended or hung up since has said so by now.
    bool IsAlive() {
        pollfd socket{PQsocket(connection_.get()), POLLIN, 0};
        if (::poll(&socket, 1, 0) > 0 && PQconsumeInput(connection_.get()) != 1) {
            return false;
        }
        return PQstatus(connection_.get()) == CONNECTION_OK &&
               PQtransactionStatus(connection_.get()) == PQTRANS_IDLE;
    }

    void Connect() {
        const auto latest = Clock::now() + patience_;
        // The last one counts, so what the URL says itself goes before the others.
        const std::array<const char*, 4> names = {"application_name", "client_encoding", "dbname",
                                                  nullptr};
        const std::array<const char*, 4> values = {"kelvarin-service", "UTF8", url_.c_str(),
                                                   nullptr};
        connection_.reset(PQconnectStartParams(names.data(), values.data(), 1));
        if (!connection_ || PQstatus(connection_.get()) == CONNECTION_BAD) {
            Fail();
        }
        PQsetNoticeProcessor(
            connection_.get(), [](void*, const char*) {}, nullptr);
        PostgresPollingStatusType status = PGRES_POLLING_WRITING;
        while (status != PGRES_POLLING_OK) {
            Wait(status == PGRES_POLLING_READING ? POLLIN : POLLOUT, latest);
            status = PQconnectPoll(connection_.get());
            if (status == PGRES_POLLING_FAILED) {
                Fail();
            }
        }
    }

    // Null when there are no more.
    Result NextResult(Clock::time_point latest) {
        while (PQflush(connection_.get()) == 1) {
            Wait(POLLIN | POLLOUT, latest);
            if (PQconsumeInput(connection_.get()) != 1) {
                Fail();
            }
        }
        while (PQisBusy(connection_.get()) == 1) {
            Wait(POLLIN, latest);
            if (PQconsumeInput(connection_.get()) != 1) {
                Fail();
            }
        }
        return Result(PQgetResult(connection_.get()));
    }

    void Wait(int events, Clock::time_point latest) {
        while (true) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(latest - Clock::now());
            pollfd socket{PQsocket(connection_.get()), static_cast<short>(events), 0};
            const int ready = ::poll(&socket, 1, static_cast<int>(std::max(left, 0ms).count()));
            if (ready > 0) {
                return;
            }
            if (ready == 0 || errno != EINTR) {
                connection_.reset(); // what comes later would be taken for another answer
                throw AccountsFailure("accounts: the database does not answer");
            }
        }
    }

    SqlResult Read(const Result& result) {
        const ExecStatusType status = PQresultStatus(result.get());
        if (status != PGRES_TUPLES_OK && status != PGRES_COMMAND_OK) {
            const char* const field = PQresultErrorField(result.get(), PG_DIAG_MESSAGE_PRIMARY);
            // Only the primary message: the others may quote what stands in a row.
            const std::string reason = field != nullptr ? field : ConnectionMessage();
            if (PQstatus(connection_.get()) != CONNECTION_OK) {
                connection_.reset();
            }
            throw AccountsFailure("accounts: " + reason);
        }
        SqlResult read;
        for (int row = 0; row < PQntuples(result.get()); ++row) {
            SqlResult::Row& texts = read.rows.emplace_back();
            for (int column = 0; column < PQnfields(result.get()); ++column) {
                texts.emplace_back(PQgetvalue(result.get(), row, column));
            }
        }
        read.changed = SqlNumber(PQcmdTuples(result.get()));
        return read;
    }

    std::string ConnectionMessage() const {
        return connection_ ? OneLine(PQerrorMessage(connection_.get())) : "out of memory";
    }

    [[noreturn]] void Fail() {
        const std::string reason = ConnectionMessage();
        connection_.reset();
        throw AccountsFailure("accounts: " + reason);
    }

    const std::string url_;
    const std::chrono::milliseconds patience_;
    std::unique_ptr<PGconn, Finish> connection_; // null: lost
    Clock::time_point nextTry_{};
    std::string lastFailure_;
};

void RefuseOtherFormat(SqlConnection& database) {
    const SqlResult format = database.Run("SELECT format FROM kelvarin_format");
    if (format.rows.empty() || SqlNumber(format.rows[0][0]) > kFormat) {
        throw AccountsFailure("the accounts in the database are of a later release of this "
                              "program");
    }
}

void BringToPresentForm(SqlConnection& database) {
    SqlTransaction transaction(database, kBegin);
    database.Run(kLockSchema);
    const bool there = !database.Run("SELECT to_regclass('kelvarin_format')").rows[0][0].empty();
    if (there) {
        return RefuseOtherFormat(database);
    }
    for (const char* const statement : kSchema) {
        database.Run(statement);
    }
    database.Run("INSERT INTO kelvarin_format VALUES(?1)", {kFormat});
    transaction.Commit();
}

// Several payers serve the same keys. Each bill locks the rows of its keys, in their order, so that
// of two payers one sees what the other has just stored and kept.
class PostgresAccounts : public SqlAccounts {
public:
    PostgresAccounts(std::unique_ptr<SqlConnection> asking, std::unique_ptr<SqlConnection> storing)
        : SqlAccounts(std::move(asking), std::move(storing)) {
        const Use connection = Store();
        BringToPresentForm(*connection);
        connection->Run("DELETE FROM holds WHERE ends < clock_timestamp() - interval '1 day'");
        connection->Run("DELETE FROM bills WHERE stored < clock_timestamp() - interval '30 days'");
    }

    bool AreNear() const override { return false; }

    std::vector<ListedAccount> Settle(const Bill& bill) override {
        const Use connection = Store();
        if (bill.usages.empty()) {
            connection->Run("SELECT 1");
            return {};
        }
        SqlTransaction transaction(*connection, kBegin);
        const bool again = !CountBill(*connection, bill);
        std::vector<ListedAccount> accounts;
        for (const Usage& usage : bill.usages) {
            const SqlResult row = LockRow(*connection, usage, again);
            if (row.rows.empty()) {
                continue;
            }
            ListedAccount listed = ReadAccount(row.rows[0]);
            if (!listed.account.unlimited) {
                Hold(*connection, usage, listed.account);
            }
            accounts.push_back(std::move(listed));
        }
        transaction.Commit();
        return accounts;
    }

protected:
    SqlResult FindRow(SqlConnection& connection, const KeyHash& key) override {
        return connection.Run(std::string("SELECT") + kAccountColumns + ", " + kHeldByOthers +
                                  " FROM keys WHERE key_hash = ?1",
                              {key.digits, payer_});
    }

private:
    // ?1 is the key and ?2 the payer who asks.
    static constexpr const char* kHeldByOthers =
        "(SELECT coalesce(sum(ms), 0) FROM holds WHERE holds.key_hash = ?1 AND payer <> ?2"
        " AND ends > clock_timestamp())";

    // False when it has been stored already.
    bool CountBill(SqlConnection& connection, const Bill& bill) const {
        const bool isCharge =
            std::ranges::any_of(bill.usages, [](const Usage& usage) { return usage.ms != 0; });
        return !isCharge ||
               connection
                       .Run("INSERT INTO bills VALUES(?1, ?2, clock_timestamp())"
                            " ON CONFLICT (payer) DO UPDATE SET number = excluded.number,"
                            " stored = excluded.stored WHERE bills.number < excluded.number",
                            {payer_, static_cast<std::int64_t>(bill.number)})
                       .changed == 1;
    }

    // The account with the usage in it; nobody else bills that key until the transaction ends.
    static SqlResult LockRow(SqlConnection& connection, const Usage& usage, bool counted) {
        if (counted || usage.ms == 0) {
            return connection.Run(std::string("SELECT") + kAccountColumns +
                                      "FROM keys WHERE key_hash = ?1 FOR UPDATE",
                                  {usage.key.digits});
        }
        return connection.Run(std::string("UPDATE keys SET used_ms = used_ms + ?2"
                                          " WHERE key_hash = ?1 RETURNING") +
                                  kAccountColumns,
                              {usage.key.digits, usage.ms});
    }

    // Keeps what is wanted of what others leave.
    void Hold(SqlConnection& connection, const Usage& usage, Account& account) const {
        const SqlResult others =
            connection.Run(std::string("SELECT ") + kHeldByOthers, {usage.key.digits, payer_});
        account.heldMs = SqlNumber(others.rows.at(0).at(0));
        const std::int64_t ms = std::min(usage.wantMs, account.RemainingMs());
        if (ms == 0) {
            connection.Run("DELETE FROM holds WHERE key_hash = ?1 AND payer = ?2",
                           {usage.key.digits, payer_});
            return;
        }
        connection.Run("INSERT INTO holds VALUES(?1, ?2, ?3, clock_timestamp() +"
                       " interval '10 seconds') ON CONFLICT (key_hash, payer) DO UPDATE"
                       " SET ms = excluded.ms, ends = excluded.ends",
                       {usage.key.digits, payer_, ms});
    }

    const std::string payer_ = RandomToken();
};

} // namespace

std::unique_ptr<Accounts> OpenPostgresAccounts(const std::string& url,
                                               std::chrono::milliseconds patience) {
    return std::make_unique<PostgresAccounts>(std::make_unique<PostgresConnection>(url, patience),
                                              std::make_unique<PostgresConnection>(url, patience));
}

} // namespace service

// What both databases promise.
#include "accounts_place.h"
#include "file_descriptor.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>
#include <thread>

namespace service {
namespace {

const KeyHash kKey = HashOf("key");

Account Limited(std::int64_t initialMs) {
    Account account;
    account.keyStart = "key";
    account.initialMs = initialMs;
    return account;
}

Account Unlimited() {
    Account account = Limited(0);
    account.unlimited = true;
    return account;
}

// Those of one who serves.
class Payer {
public:
    explicit Payer(Accounts& accounts) : accounts_(accounts) {}

    // The account as it is afterwards.
    std::optional<Account> Pay(std::int64_t ms, std::int64_t wantMs = 0) {
        const auto settled = accounts_.Settle({++number_, {{kKey, ms, wantMs}}});
        return settled.empty() ? std::nullopt : std::optional(settled[0].account);
    }

private:
    Accounts& accounts_;
    std::uint64_t number_ = 0;
};

class AccountsTest : public testing::TestWithParam<Database> {
protected:
    AccountsPlace place_{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(Databases, AccountsTest,
                         testing::Values(Database::Sqlite, Database::Postgres), NameOf);

class PostgresAccountsTest : public testing::Test {
protected:
    AccountsPlace place_{Database::Postgres};
};

TEST_P(AccountsTest, ChangesMadeThroughOneConnectionAreSeenThroughAnother) {
    const auto opened = place_.Open();
    const auto other = place_.Open();
    Accounts& service = *opened;
    Accounts& commandLine = *other;
    Payer payer(service);

    EXPECT_TRUE(commandLine.Add(kKey, Limited(1000)));
    EXPECT_FALSE(commandLine.Add(kKey, Unlimited()));
    EXPECT_EQ(payer.Pay(1000)->usedMs, 1000);
    EXPECT_EQ(RefusalOf(commandLine.Find(kKey)), Refusal::QuotaExceeded);
    payer.Pay(200);
    EXPECT_EQ(service.Find(kKey)->RemainingMs(), 0);
    EXPECT_TRUE(commandLine.Grant(kKey, 700));
    EXPECT_EQ(service.Find(kKey)->RemainingMs(), 500);
    EXPECT_TRUE(commandLine.SetDisabled(kKey, true));
    EXPECT_EQ(RefusalOf(service.Find(kKey)), Refusal::KeyDisabled);
    EXPECT_TRUE(commandLine.SetDisabled(kKey, false));
    EXPECT_TRUE(commandLine.GrantUnlimited(kKey));
    EXPECT_EQ(RefusalOf(service.Find(kKey)), Refusal::None);
    EXPECT_FALSE(commandLine.Grant(kKey, 700)) << "of an unlimited key this took something away";
    EXPECT_TRUE(service.Find(kKey)->unlimited);
    EXPECT_TRUE(commandLine.Limit(kKey, 300));
    EXPECT_EQ(service.Find(kKey)->RemainingMs(), 300);
    EXPECT_TRUE(commandLine.SetSessions(kKey, 5));
    EXPECT_EQ(service.List().at(0).account.sessions, 5);
    EXPECT_TRUE(commandLine.Remove(kKey));
    EXPECT_EQ(RefusalOf(service.Find(kKey)), Refusal::KeyNotFound);

    EXPECT_FALSE(service.Grant(kKey, 1));
    EXPECT_FALSE(service.SetDisabled(kKey, true));
    EXPECT_FALSE(payer.Pay(1));
}

TEST_P(AccountsTest, AKeyIsMeantByItsTextItsNameOrItsFirstLetters) {
    const auto opened = place_.Open();
    Accounts& accounts = *opened;
    const auto add = [&](const std::string& key, const std::string& name) {
        Account account = Unlimited();
        account.keyStart = StartOf(key);
        account.name = name;
        return accounts.Add(HashOf(key), account);
    };
    ASSERT_TRUE(add("aaaaa-first", "anna"));
    ASSERT_TRUE(add("bbbbb-second", ""));
    ASSERT_TRUE(add("bbbbb-third", "ccccc"));
    ASSERT_TRUE(add("ccccc-fourth", ""));
    EXPECT_FALSE(add("ddddd-fifth", "anna")) << "a name that is there already";

    EXPECT_EQ(accounts.Resolve("bbbbb-third"), HashOf("bbbbb-third"));
    EXPECT_EQ(accounts.Resolve("anna"), HashOf("aaaaa-first"));
    EXPECT_EQ(accounts.Resolve("aaaaa"), HashOf("aaaaa-first"));
    EXPECT_EQ(accounts.Resolve("ccccc"), HashOf("bbbbb-third")) << "a name comes first";
    EXPECT_THROW(accounts.Resolve("bbbbb"), std::runtime_error);
    for (const char* const none : {"", "aaaa", "aaaaa-", "' OR 1=1 --", "Anna"}) {
        EXPECT_FALSE(accounts.Resolve(none)) << none;
    }
}

TEST_P(AccountsTest, ThoseOfALaterReleaseAreLeftAlone) {
    place_.Open();
    place_.Execute(place_.IsNear() ? "PRAGMA user_version=3"
                                   : "UPDATE kelvarin_format SET format = 2");
    EXPECT_THROW(place_.Open(), AccountsFailure);
}

TEST(SqliteAccountsTest, AFileOfFormerReleasesIsTakenOverAndHoldsNoWholeKeyAfterwards) {
    const AccountsPlace place(Database::Sqlite);
    place.Execute("PRAGMA journal_mode=WAL; CREATE TABLE accounts(access_key TEXT PRIMARY KEY,"
                  " disabled INTEGER NOT NULL DEFAULT 0, unlimited INTEGER NOT NULL DEFAULT 0,"
                  " initial_ms INTEGER NOT NULL DEFAULT 0 CHECK(initial_ms >= 0),"
                  " used_ms INTEGER NOT NULL DEFAULT 0 CHECK(used_ms >= 0)) STRICT, WITHOUT ROWID;"
                  "INSERT INTO accounts VALUES('anna-0123456789', 0, 0, 90000, 1234);"
                  "INSERT INTO accounts VALUES('ben', 1, 1, 0, 7);");
    for (int opening = 0; opening < 2; ++opening) {
        const auto accounts = place.Open();
        const Account anna = accounts->Find(HashOf("anna-0123456789")).value();
        EXPECT_EQ(anna.initialMs, 90'000);
        EXPECT_EQ(anna.usedMs, 1234);
        EXPECT_EQ(anna.keyStart, "anna-");
        EXPECT_EQ(anna.sessions, 2);
        EXPECT_EQ(RefusalOf(anna), Refusal::None);
        const Account ben = accounts->Find(HashOf("ben")).value();
        EXPECT_TRUE(ben.disabled && ben.unlimited);
        EXPECT_EQ(accounts->List().size(), 2U);
    }
    for (const auto& entry : std::filesystem::directory_iterator(place.File().parent_path())) {
        std::ifstream stream(entry.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
        EXPECT_EQ(bytes.find("anna-0"), std::string::npos) << entry.path();
    }
}

TEST_P(AccountsTest, BillsOfSeveralWhoServeAtOnceAllCount) {
    place_.Open()->Add(kKey, Unlimited());
    {
        std::array<std::jthread, 4> threads;
        for (std::jthread& thread : threads) {
            thread = std::jthread([&] {
                const auto accounts = place_.Open();
                Payer payer(*accounts);
                for (int i = 0; i < 50; ++i) {
                    payer.Pay(3);
                }
            });
        }
    }
    EXPECT_EQ(place_.Open()->Find(kKey)->usedMs, 4 * 50 * 3);
}

TEST_P(AccountsTest, AKillInTheMiddleLosesNoBillThatWasStored) {
    place_.Open()->Add(kKey, Unlimited());
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    const FileDescriptor reports(ends[0]);
    FileDescriptor reporting(ends[1]);

    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const auto accounts = place_.Open();
        Payer payer(*accounts);
        do {
            payer.Pay(1);
        } while (::write(reporting.Get(), "x", 1) == 1);
        ::_exit(1);
    }
    reporting = FileDescriptor();
    std::int64_t reported = 0;
    for (char charge = 0; ::read(reports.Get(), &charge, 1) == 1;) {
        if (++reported == 100) {
            ::kill(child, SIGKILL);
        }
    }
    ::waitpid(child, nullptr, 0);

    const std::int64_t used = place_.Open()->Find(kKey)->usedMs;
    EXPECT_GE(reported, 100);
    EXPECT_GE(used, reported);
    EXPECT_LE(used, reported + 1); // stored, and killed before it could say so
}

TEST_F(PostgresAccountsTest, ABillThatIsHandedInAgainCountsOnce) {
    const auto accounts = place_.Open();
    accounts->Add(kKey, Limited(5000));
    const Bill bill{1, {{kKey, 1000, 0}}};
    EXPECT_EQ(accounts->Settle(bill).at(0).account.usedMs, 1000);
    EXPECT_EQ(accounts->Settle(bill).at(0).account.usedMs, 1000);
    EXPECT_EQ(accounts->Settle({2, bill.usages}).at(0).account.usedMs, 2000);
    EXPECT_EQ(place_.Open()->Settle(bill).at(0).account.usedMs, 3000) << "another one's first";
}

TEST_F(PostgresAccountsTest, WhatOneKeepsOfAQuotaIsNotLeftForAnother) {
    const auto first = place_.Open();
    const auto second = place_.Open();
    first->Add(kKey, Limited(5000));
    Payer one(*first);
    Payer other(*second);
    EXPECT_EQ(one.Pay(0, 3000)->RemainingMs(), 5000);
    EXPECT_EQ(second->Find(kKey)->RemainingMs(), 2000);
    EXPECT_EQ(other.Pay(0, 3000)->RemainingMs(), 2000) << "and of that it keeps no more";
    EXPECT_EQ(one.Pay(1000, 3000)->RemainingMs(), 2000);
    EXPECT_EQ(other.Pay(2000, 3000)->RemainingMs(), 0);
    EXPECT_EQ(one.Pay(1000)->RemainingMs(), 1000);
    EXPECT_EQ(other.Pay(0, 3000)->RemainingMs(), 1000);
    place_.Execute("UPDATE holds SET ends = clock_timestamp()"); // it was killed, a while ago
    EXPECT_EQ(first->Find(kKey)->RemainingMs(), 1000);
}

TEST(SqliteAccountsTest, TheFileOfKeysIsReadableByItsOwnerAlone) {
    const AccountsPlace place(Database::Sqlite);
    const auto accounts = place.Open();
    accounts->Add(kKey, Unlimited());
    const std::filesystem::path folder = place.File().parent_path();
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        struct stat status {};
        ASSERT_EQ(::stat(entry.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0600U) << entry.path();
    }
    EXPECT_THROW(OpenSqliteAccounts(folder / "missing/accounts.db"), AccountsFailure);
}

TEST(KeysTest, OnlyKeysThatNeedNoEncodingCanBeMade) {
    EXPECT_TRUE(IsUsableKey("AZaz09-._~"));
    EXPECT_TRUE(IsUsableKey(std::string(255, 'k')));
    for (const std::string& key : {std::string(), std::string(256, 'k'), std::string("a&b"),
                                   std::string("a%41"), std::string("a\"b"), std::string("é")}) {
        EXPECT_FALSE(IsUsableKey(key)) << key;
    }
}

} // namespace
} // namespace service

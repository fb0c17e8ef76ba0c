#include "accounts.h"
#include "file_descriptor.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
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

void Charge(Accounts& accounts, std::int64_t ms) {
    const Usage usage{kKey, ms};
    accounts.Charge({&usage, 1});
}

void Execute(const std::filesystem::path& file, const std::string& sql) {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &database), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(database);
    sqlite3_close(database);
}

TEST(AccountsTest, ChangesMadeThroughOneConnectionAreSeenThroughAnother) {
    const ScratchFolder folder;
    Accounts service(folder / "accounts.db");
    Accounts commandLine(folder / "accounts.db");

    EXPECT_TRUE(commandLine.Add(kKey, Limited(1000)));
    EXPECT_FALSE(commandLine.Add(kKey, Unlimited()));
    Charge(service, 1000);
    EXPECT_EQ(RefusalOf(commandLine.Find(kKey)), Refusal::QuotaExceeded);
    Charge(service, 200);
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
    EXPECT_NO_THROW(Charge(service, 1));
}

TEST(AccountsTest, AKeyIsMeantByItsTextItsNameOrItsFirstLetters) {
    const ScratchFolder folder;
    Accounts accounts(folder / "accounts.db");
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

TEST(AccountsTest, AFileOfFormerReleasesIsTakenOverAndHoldsNoWholeKeyAfterwards) {
    const ScratchFolder folder;
    const std::filesystem::path file = folder / "accounts.db";
    Execute(file, "PRAGMA journal_mode=WAL; CREATE TABLE accounts(access_key TEXT PRIMARY KEY,"
                  " disabled INTEGER NOT NULL DEFAULT 0, unlimited INTEGER NOT NULL DEFAULT 0,"
                  " initial_ms INTEGER NOT NULL DEFAULT 0 CHECK(initial_ms >= 0),"
                  " used_ms INTEGER NOT NULL DEFAULT 0 CHECK(used_ms >= 0)) STRICT, WITHOUT ROWID;"
                  "INSERT INTO accounts VALUES('anna-0123456789', 0, 0, 90000, 1234);"
                  "INSERT INTO accounts VALUES('ben', 1, 1, 0, 7);");
    for (int opening = 0; opening < 2; ++opening) {
        Accounts accounts(file);
        const Account anna = accounts.Find(HashOf("anna-0123456789")).value();
        EXPECT_EQ(anna.initialMs, 90'000);
        EXPECT_EQ(anna.usedMs, 1234);
        EXPECT_EQ(anna.keyStart, "anna-");
        EXPECT_EQ(anna.sessions, 2);
        EXPECT_EQ(RefusalOf(anna), Refusal::None);
        const Account ben = accounts.Find(HashOf("ben")).value();
        EXPECT_TRUE(ben.disabled && ben.unlimited);
        EXPECT_EQ(accounts.List().size(), 2U);
    }
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
        std::ifstream stream(entry.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
        EXPECT_EQ(bytes.find("anna-0"), std::string::npos) << entry.path();
    }

    Execute(file, "PRAGMA user_version=3");
    EXPECT_THROW(Accounts{file}, std::runtime_error) << "a later release's file was opened";
}

TEST(AccountsTest, ChargesOfSeveralThreadsAllCount) {
    const ScratchFolder folder;
    Accounts accounts(folder / "accounts.db");
    accounts.Add(kKey, Unlimited());
    {
        std::array<std::jthread, 4> threads;
        for (std::jthread& thread : threads) {
            thread = std::jthread([&] {
                for (int i = 0; i < 50; ++i) {
                    Charge(accounts, 3);
                }
            });
        }
    }
    EXPECT_EQ(accounts.Find(kKey)->usedMs, 4 * 50 * 3);
}

TEST(AccountsTest, AKillInTheMiddleLosesNoChargeThatWasMade) {
    const ScratchFolder folder;
    { Accounts(folder / "accounts.db").Add(kKey, Unlimited()); }
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    const FileDescriptor reports(ends[0]);
    FileDescriptor reporting(ends[1]);

    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        Accounts accounts(folder / "accounts.db");
        do {
            Charge(accounts, 1);
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

    const std::int64_t used = Accounts(folder / "accounts.db").Find(kKey)->usedMs;
    EXPECT_GE(reported, 100);
    EXPECT_GE(used, reported);
    EXPECT_LE(used, reported + 1); // charged, and killed before it could say so
}

TEST(AccountsTest, TheFileOfKeysIsReadableByItsOwnerAlone) {
    const ScratchFolder folder;
    Accounts accounts(folder / "accounts.db");
    accounts.Add(kKey, Unlimited());
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
        struct stat status {};
        ASSERT_EQ(::stat(entry.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0600U) << entry.path();
    }
    EXPECT_THROW(Accounts(folder / "missing/accounts.db"), std::runtime_error);
}

TEST(AccountsTest, OnlyKeysThatNeedNoEncodingCanBeMade) {
    EXPECT_TRUE(IsUsableKey("AZaz09-._~"));
    EXPECT_TRUE(IsUsableKey(std::string(255, 'k')));
    for (const std::string& key : {std::string(), std::string(256, 'k'), std::string("a&b"),
                                   std::string("a%41"), std::string("a\"b"), std::string("é")}) {
        EXPECT_FALSE(IsUsableKey(key)) << key;
    }
}

} // namespace
} // namespace service

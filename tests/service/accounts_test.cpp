#include "accounts.h"

#include "file_descriptor.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <thread>

namespace service {
namespace {

TEST(AccountsTest, ChangesMadeThroughOneConnectionAreSeenThroughAnother) {
    const ScratchFolder folder;
    Accounts service(folder / "accounts.db");
    Accounts commandLine(folder / "accounts.db");

    EXPECT_TRUE(commandLine.Add({"key", false, false, 1000, 0}));
    EXPECT_FALSE(commandLine.Add({"key", false, true, 0, 0}));
    EXPECT_TRUE(service.Charge("key", 1000));
    EXPECT_EQ(RefusalOf(commandLine.Find("key")), Refusal::QuotaExceeded);
    EXPECT_TRUE(service.Charge("key", 200));
    EXPECT_EQ(service.Find("key")->RemainingMs(), 0);
    EXPECT_TRUE(commandLine.Grant("key", 700));
    EXPECT_EQ(service.Find("key")->RemainingMs(), 500);
    EXPECT_TRUE(commandLine.SetDisabled("key", true));
    EXPECT_EQ(RefusalOf(service.Find("key")), Refusal::KeyDisabled);
    EXPECT_TRUE(commandLine.SetDisabled("key", false));
    EXPECT_TRUE(commandLine.GrantUnlimited("key"));
    EXPECT_EQ(RefusalOf(service.Find("key")), Refusal::None);
    EXPECT_EQ(service.List().size(), 1U);

    EXPECT_FALSE(service.Find("' OR 1=1 --"));
    EXPECT_FALSE(service.Find("KEY"));
    EXPECT_FALSE(service.Grant("nobody", 1));
    EXPECT_FALSE(service.SetDisabled("nobody", true));
}

TEST(AccountsTest, ChargesOfSeveralThreadsAllCount) {
    const ScratchFolder folder;
    Accounts accounts(folder / "accounts.db");
    accounts.Add({"key", false, true, 0, 0});
    {
        std::array<std::jthread, 4> threads;
        for (std::jthread& thread : threads) {
            thread = std::jthread([&] {
                for (int i = 0; i < 50; ++i) {
                    accounts.Charge("key", 3);
                }
            });
        }
    }
    EXPECT_EQ(accounts.Find("key")->usedMs, 4 * 50 * 3);
}

TEST(AccountsTest, AKillInTheMiddleLosesNoChargeThatWasMade) {
    const ScratchFolder folder;
    { Accounts(folder / "accounts.db").Add({"key", false, true, 0, 0}); }
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    const FileDescriptor reports(ends[0]);
    FileDescriptor reporting(ends[1]);

    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        Accounts accounts(folder / "accounts.db");
        while (accounts.Charge("key", 1) && ::write(reporting.Get(), "x", 1) == 1) {
        }
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

    const std::int64_t used = Accounts(folder / "accounts.db").Find("key")->usedMs;
    EXPECT_GE(reported, 100);
    EXPECT_GE(used, reported);
    EXPECT_LE(used, reported + 1); // charged, and killed before it could say so
}

TEST(AccountsTest, TheFileOfKeysIsReadableByItsOwnerAlone) {
    const ScratchFolder folder;
    Accounts accounts(folder / "accounts.db");
    accounts.Add({"key", false, true, 0, 0});
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

// Billing in memory: exact, whatever becomes of the file meanwhile.
#include "ledger.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>

#include <array>
#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

namespace service {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kSecond = 16'000; // samples
const KeyHash kBilled = HashOf("key");

Account WithQuota(std::int64_t ms) {
    Account account;
    account.initialMs = ms;
    account.unlimited = ms == 0;
    return account;
}

bool Soon(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

class LedgerTest : public testing::Test {
protected:
    std::int64_t StoredMs() { return Accounts(file_).Find(kBilled)->usedMs; }

    const ScratchFolder folder_;
    const std::filesystem::path file_ = folder_ / "accounts.db";
    Accounts accounts_{file_, 0ms};
};

TEST_F(LedgerTest, WhatIsTakenIsStoredByItselfAndAtTheEnd) {
    accounts_.Add(kBilled, WithQuota(0));
    {
        Ledger ledger(accounts_, 50ms);
        ASSERT_TRUE(ledger.Find(kBilled));
        EXPECT_EQ(ledger.Take(kBilled, kSecond + 15),
                  kSecond + 15); // 15 are less than a millisecond
        EXPECT_EQ(ledger.Find(kBilled)->usedMs, 1000);
        EXPECT_TRUE(Soon([&] { return StoredMs() == 1000; }));
        ledger.Take(kBilled, 1);
        ledger.Take(kBilled, kSecond);
        ledger.GiveBack(kBilled, kSecond / 2);
    }
    EXPECT_EQ(StoredMs(), 1501);
}

TEST_F(LedgerTest, SeveralWhoTakeAtOnceWhileItIsStoredGetTheQuotaAndNoMore) {
    accounts_.Add(kBilled, WithQuota(20'000));
    std::atomic<std::size_t> taken = 0;
    {
        Ledger ledger(accounts_, 1ms);
        std::array<std::jthread, 3> threads;
        for (std::jthread& thread : threads) {
            thread = std::jthread([&] {
                // Nobody is refused while something is left.
                while (RefusalOf(ledger.Find(kBilled)) == Refusal::None) {
                    taken += ledger.Take(kBilled, 160);
                }
            });
        }
    }
    EXPECT_EQ(taken, 20 * kSecond);
    EXPECT_EQ(StoredMs(), 20'000);
}

TEST_F(LedgerTest, ChangesByOthersCountAtOnce) {
    accounts_.Add(kBilled, WithQuota(1000));
    Ledger ledger(accounts_, 1h);
    Accounts commandLine(file_);
    ledger.Find(kBilled);
    EXPECT_EQ(ledger.Take(kBilled, 2 * kSecond), kSecond);
    EXPECT_EQ(RefusalOf(ledger.Find(kBilled)), Refusal::QuotaExceeded);
    commandLine.Grant(kBilled, 1000);
    EXPECT_EQ(ledger.Find(kBilled)->RemainingMs(), 1000);
    commandLine.SetDisabled(kBilled, true);
    EXPECT_EQ(RefusalOf(ledger.Find(kBilled)), Refusal::KeyDisabled);
    commandLine.Remove(kBilled);
    EXPECT_EQ(RefusalOf(ledger.Find(kBilled)), Refusal::KeyNotFound);
    EXPECT_EQ(ledger.Take(kBilled, kSecond), 0U);
    EXPECT_EQ(ledger.Take(HashOf("nobody"), kSecond), 0U);
}

TEST_F(LedgerTest, TwoServicesOnOneFileBillTheSameKeyExactly) {
    accounts_.Add(kBilled, WithQuota(0));
    Accounts others(file_);
    {
        Ledger first(accounts_, 1ms);
        Ledger second(others, 1ms);
        ASSERT_TRUE(first.Find(kBilled));
        ASSERT_TRUE(second.Find(kBilled));
        for (int i = 0; i < 200; ++i) {
            first.Take(kBilled, kSecond / 100);
            second.Take(kBilled, kSecond / 50);
            first.Find(kBilled);
        }
    }
    EXPECT_EQ(StoredMs(), 2000 + 4000);
}

// Billing goes on without waiting while nothing can be stored, and all of it is stored afterwards.
void ExpectItIsKept(Accounts& accounts, const std::function<void()>& block,
                    const std::function<void()>& unblock) {
    Ledger ledger(accounts, 20ms);
    ASSERT_TRUE(ledger.Find(kBilled));
    block();
    ledger.Take(kBilled, kSecond);
    EXPECT_TRUE(Soon([&] { return !ledger.CanStore(); }));
    const auto begun = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(ledger.Find(kBilled));
        EXPECT_EQ(ledger.Take(kBilled, kSecond / 100), kSecond / 100);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 2s) << "captions would have waited";
    EXPECT_EQ(ledger.Find(kBilled)->usedMs, 2000);
    unblock();
    EXPECT_TRUE(Soon([&] { return ledger.CanStore(); }));
    EXPECT_EQ(ledger.Find(kBilled)->usedMs, 2000);
}

TEST_F(LedgerTest, AnotherProgramsWriteLockHoldsUpNobody) {
    accounts_.Add(kBilled, WithQuota(0));
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(file_.c_str(), &other), SQLITE_OK);
    ExpectItIsKept(
        accounts_, [&] { sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr); },
        [&] { sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr); });
    sqlite3_close(other);
    EXPECT_EQ(StoredMs(), 2000);
}

TEST_F(LedgerTest, AFullDiskLosesNothing) {
    accounts_.Add(kBilled, WithQuota(0));
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit former{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &former), 0);
    const rlimit full{1, former.rlim_max};
    ExpectItIsKept(
        accounts_, [&] { ::setrlimit(RLIMIT_FSIZE, &full); },
        [&] { ::setrlimit(RLIMIT_FSIZE, &former); });
    EXPECT_EQ(StoredMs(), 2000);
}

} // namespace
} // namespace service

// Billing in memory: exact, whatever becomes of the database meanwhile.
#include "accounts_place.h"
#include "file_descriptor.h"
#include "ledger.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

namespace service {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kSecond = 16'000; // samples
constexpr std::size_t kTenMs = kSecond / 100;
const KeyHash kBilled = HashOf("key");

Account WithQuota(std::int64_t ms) {
    Account account;
    account.initialMs = ms;
    account.unlimited = ms == 0;
    return account;
}

bool Soon(const std::function<bool()>& condition) {
    const auto deadline = Clock::now() + 20s;
    while (!condition()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

class LedgerTest : public testing::TestWithParam<Database> {
protected:
    std::int64_t StoredMs() { return place_.Open()->Find(kBilled)->usedMs; }

    AccountsPlace place_{GetParam()};
    std::unique_ptr<Accounts> accounts_ = place_.Open(place_.IsNear() ? 0ms : 2000ms);
};
INSTANTIATE_TEST_SUITE_P(Databases, LedgerTest,
                         testing::Values(Database::Sqlite, Database::Postgres), NameOf);

TEST_P(LedgerTest, WhatIsTakenIsStoredByItselfAndAtTheEnd) {
    accounts_->Add(kBilled, WithQuota(0));
    {
        Ledger ledger(*accounts_, 50ms);
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

TEST_P(LedgerTest, SeveralWhoTakeAtOnceWhileItIsStoredGetTheQuotaAndNoMore) {
    accounts_->Add(kBilled, WithQuota(20'000));
    std::atomic<std::size_t> taken = 0;
    {
        Ledger ledger(*accounts_, 1ms);
        std::array<std::jthread, 3> threads;
        for (std::jthread& thread : threads) {
            thread = std::jthread([&] {
                // Nobody is refused while something is left.
                while (RefusalOf(ledger.Find(kBilled)) == Refusal::None) {
                    taken += ledger.Take(kBilled, kTenMs);
                }
            });
        }
    }
    EXPECT_EQ(taken, 20 * kSecond);
    EXPECT_EQ(StoredMs(), 20'000);
}

TEST_P(LedgerTest, ChangesByOthersCountAtOnceOrWithTheNextBill) {
    accounts_->Add(kBilled, WithQuota(1000));
    Ledger ledger(*accounts_, place_.IsNear() ? std::chrono::milliseconds(1h) : 10ms);
    const auto commandLine = place_.Open();
    const auto becomes = [&](const std::function<bool(const std::optional<Account>&)>& expected) {
        const auto seen = [&] { return expected(ledger.Find(kBilled)); };
        return place_.IsNear() ? seen() : Soon(seen);
    };
    const auto refuses = [&](Refusal refusal) {
        return becomes([=](const auto& account) { return RefusalOf(account) == refusal; });
    };
    ledger.Find(kBilled);
    EXPECT_EQ(ledger.Take(kBilled, 2 * kSecond), kSecond);
    EXPECT_TRUE(refuses(Refusal::QuotaExceeded));
    commandLine->Grant(kBilled, 1000);
    EXPECT_TRUE(becomes([](const auto& account) { return account->RemainingMs() == 1000; }));
    commandLine->SetDisabled(kBilled, true);
    EXPECT_TRUE(refuses(Refusal::KeyDisabled));
    commandLine->Remove(kBilled);
    EXPECT_TRUE(refuses(Refusal::KeyNotFound));
    EXPECT_EQ(ledger.Take(kBilled, kSecond), 0U);
    EXPECT_EQ(ledger.Take(HashOf("nobody"), kSecond), 0U);
}

TEST_P(LedgerTest, TwoServicesBillTheSameKeyExactly) {
    accounts_->Add(kBilled, WithQuota(0));
    const auto others = place_.Open();
    {
        Ledger first(*accounts_, 1ms);
        Ledger second(*others, 1ms);
        ASSERT_TRUE(first.Find(kBilled));
        ASSERT_TRUE(second.Find(kBilled));
        for (int i = 0; i < 200; ++i) {
            first.Take(kBilled, kTenMs);
            second.Take(kBilled, 2 * kTenMs);
            first.Find(kBilled);
        }
    }
    EXPECT_EQ(StoredMs(), 2000 + 4000);
}

// Audio at ten times the pace of speech, until the key is refused.
std::size_t SpeakUntilRefused(Ledger& ledger) {
    std::size_t taken = 0;
    auto next = Clock::now();
    while (RefusalOf(ledger.Find(kBilled)) == Refusal::None) {
        taken += ledger.Take(kBilled, kTenMs);
        next += 1ms;
        std::this_thread::sleep_until(next);
    }
    return taken;
}

TEST_P(LedgerTest, TwoServicesSpendTheLastSecondsOfAQuotaOnce) {
    constexpr std::int64_t kQuotaMs = 8000;
    constexpr auto kBetweenBills = 20ms;
    accounts_->Add(kBilled, WithQuota(kQuotaMs));
    const auto others = place_.Open();
    std::atomic<std::size_t> taken = 0;
    {
        Ledger first(*accounts_, kBetweenBills);
        Ledger second(*others, kBetweenBills);
        std::jthread one([&] { taken += SpeakUntilRefused(first); });
        std::jthread other([&] { taken += SpeakUntilRefused(second); });
    }
    const auto takenMs = static_cast<std::int64_t>(taken * 1000 / kSecond);
    EXPECT_EQ(StoredMs(), takenMs);
    if (place_.IsNear()) {
        EXPECT_GE(takenMs, kQuotaMs); // and what one of them took between two bills of the other
    } else {
        EXPECT_LE(takenMs, kQuotaMs);
        EXPECT_GE(takenMs, kQuotaMs - 3000) << "one kept what it did not need";
    }
}

// Billing goes on without waiting while nothing can be stored, and all of it is stored afterwards.
void ExpectItIsKept(Accounts& accounts, const std::function<void()>& block,
                    const std::function<void()>& unblock) {
    Ledger ledger(accounts, 20ms);
    ASSERT_TRUE(ledger.Find(kBilled));
    block();
    ledger.Take(kBilled, kSecond);
    EXPECT_TRUE(Soon([&] { return !ledger.CanStore(); }));
    const auto begun = Clock::now();
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(ledger.Find(kBilled));
        EXPECT_EQ(ledger.Take(kBilled, kTenMs), kTenMs);
    }
    EXPECT_LT(Clock::now() - begun, 2s) << "captions would have waited";
    EXPECT_EQ(ledger.Find(kBilled)->usedMs, 2000);
    unblock();
    EXPECT_TRUE(Soon([&] { return ledger.CanStore(); }));
    EXPECT_EQ(ledger.Find(kBilled)->usedMs, 2000);
}

TEST_P(LedgerTest, ALostDatabaseHoldsUpNobodyAndLosesNothing) {
    accounts_->Add(kBilled, WithQuota(0));
    ExpectItIsKept(
        *accounts_, [&] { place_.TakeAway(); }, [&] { place_.GiveBack(); });
    EXPECT_EQ(StoredMs(), 2000);
}

TEST(SqliteLedgerTest, AFullDiskLosesNothing) {
    const AccountsPlace place(Database::Sqlite);
    const auto accounts = place.Open(0ms);
    accounts->Add(kBilled, WithQuota(0));
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit former{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &former), 0);
    const rlimit full{1, former.rlim_max};
    ExpectItIsKept(
        *accounts, [&] { ::setrlimit(RLIMIT_FSIZE, &full); },
        [&] { ::setrlimit(RLIMIT_FSIZE, &former); });
    EXPECT_EQ(place.Open()->Find(kBilled)->usedMs, 2000);
}

// A service of its own process that takes 10 ms of audio at a time, at ten times the pace of
// speech, and says so each time. Ends only by a kill.
[[noreturn]] void BillUntilKilled(const AccountsPlace& place, std::chrono::milliseconds storeEvery,
                                  const FileDescriptor& reporting) {
    const auto accounts = place.Open();
    Ledger ledger(*accounts, storeEvery);
    ledger.Find(kBilled);
    for (auto next = Clock::now();; next += 1ms) {
        std::this_thread::sleep_until(next);
        if (ledger.Take(kBilled, kTenMs) != kTenMs || ::write(reporting.Get(), "x", 1) != 1) {
            ::_exit(1);
        }
    }
}

TEST_P(LedgerTest, AKillLosesNoMoreThanWhatWasUsedSinceTheLastBill) {
    constexpr auto kStoreEvery = 100ms;
    // The bill under way is not done at once, least of all on a busy computer.
    constexpr auto kBound = kStoreEvery + 500ms;
    accounts_->Add(kBilled, WithQuota(0));
    std::int64_t before = 0;
    for (const int reportsUntilKill : {1500, 800, 1111}) {
        std::array<int, 2> ends{};
        ASSERT_EQ(::pipe(ends.data()), 0);
        const FileDescriptor reports(ends[0]);
        FileDescriptor reporting(ends[1]);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            BillUntilKilled(place_, kStoreEvery, reporting);
        }
        reporting = FileDescriptor();
        std::vector<Clock::time_point> times;
        for (char take = 0; ::read(reports.Get(), &take, 1) == 1;) {
            times.push_back(Clock::now());
            if (std::ssize(times) == reportsUntilKill) {
                ::kill(child, SIGKILL);
            }
        }
        ::waitpid(child, nullptr, 0);

        const auto safe = std::ranges::count_if(
            times, [&](Clock::time_point time) { return time < times.back() - kBound; });
        const std::int64_t used = StoredMs();
        EXPECT_GE(used - before, safe * 10) << "of " << times.size() * 10;
        EXPECT_LE(used - before, std::ssize(times) * 10 + 10);
        before = used;
    }
}

} // namespace
} // namespace service

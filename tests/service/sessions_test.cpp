// Who may have sessions, how many and for how long.
#include "recorded_speech.h"
#include "scratch_folder.h"
#include "sessions.h"
#include "sqlite_accounts.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <optional>
#include <string>
#include <thread>

namespace service {
namespace {

using namespace std::chrono_literals;

const KeyHash kAnnas = HashOf("anna");
const KeyHash kBens = HashOf("ben");
const Conversation kLanguages{"en-US", "es-ES", "es"};

class SessionsTest : public testing::Test {
protected:
    void Open(std::size_t decoders, const SessionLimits& limits = {}) {
        pool_.emplace(decoders);
        while (pool_->LoadOne()) { // so that no start takes time
        }
        sessions_.emplace(ledger_, *pool_, chains_, limits);
    }

    void Add(const KeyHash& key, std::int64_t quotaMs, std::int64_t sessions = 2) {
        Account account;
        account.unlimited = quotaMs == 0;
        account.initialMs = quotaMs;
        account.sessions = sessions;
        accounts_->Add(key, account);
    }

    std::string Start(const KeyHash& key) {
        const StartAnswer answer = sessions_->Start(key, kLanguages);
        EXPECT_EQ(answer.refusal, Refusal::None);
        return answer.sessionId;
    }

    ExchangeAnswer Exchange(const std::string& id, const KeyHash& key,
                            std::span<const std::int16_t> samples = {}) {
        const Sessions::Turn turn = sessions_->TakeTurn(id, key);
        return turn.Refused() == Refusal::None ? sessions_->Exchange(turn, samples)
                                               : ExchangeAnswer{turn.Refused(), {}, {}};
    }

    const ScratchFolder folder_;
    const std::unique_ptr<Accounts> accounts_ = OpenSqliteAccounts(folder_ / "accounts.db", 100ms);
    Ledger ledger_{*accounts_};
    ChainPool chains_;
    std::optional<DecoderPool> pool_;
    std::optional<Sessions> sessions_;
    const std::vector<std::int16_t> silence_ = std::vector<std::int16_t>(1600);
};

TEST_F(SessionsTest, AKeyThatHasItsNumberLosesItsLongestSilentSessionAndNoOther) {
    Open(3);
    Add(kAnnas, 0);
    Add(kBens, 0, 1);
    const std::string bens = Start(kBens);
    const std::string first = Start(kAnnas);
    const std::string second = Start(kAnnas);
    Exchange(first, kAnnas, silence_);
    const std::string third = Start(kAnnas); // all decoders were in use
    EXPECT_EQ(Exchange(first, kAnnas).refusal, Refusal::None);
    EXPECT_EQ(Exchange(second, kAnnas).refusal, Refusal::SessionNotFound);
    EXPECT_EQ(Exchange(third, kAnnas).refusal, Refusal::None);
    EXPECT_EQ(Exchange(bens, kBens).refusal, Refusal::None);
    Start(kBens);
    EXPECT_EQ(Exchange(bens, kBens).refusal, Refusal::SessionNotFound);
    EXPECT_EQ(sessions_->Figures().sessions, 3U);
}

TEST_F(SessionsTest, ASessionWithoutAudioEndsHoweverManyRequestsItMakes) {
    SessionLimits limits;
    limits.withoutRequest = 200ms; // how often it is looked, too
    limits.withoutAudio = 300ms;
    Open(2, limits);
    Add(kAnnas, 0);
    const auto begun = std::chrono::steady_clock::now();
    const std::string silent = Start(kAnnas);
    const std::string speaking = Start(kAnnas);
    while (Exchange(silent, kAnnas).refusal == Refusal::None) {
        ASSERT_LT(std::chrono::steady_clock::now() - begun, 10s);
        ASSERT_EQ(Exchange(speaking, kAnnas, std::span(silence_).first(16)).refusal, Refusal::None);
    }
    EXPECT_GE(std::chrono::steady_clock::now() - begun, 300ms);
    EXPECT_EQ(Exchange(speaking, kAnnas).refusal, Refusal::None);
}

TEST_F(SessionsTest, OneExchangeAtATime) {
    Open(1);
    Add(kAnnas, 0);
    const std::string id = Start(kAnnas);
    {
        const Sessions::Turn turn = sessions_->TakeTurn(id, kAnnas);
        EXPECT_EQ(turn.Refused(), Refusal::None);
        EXPECT_EQ(sessions_->TakeTurn(id, kAnnas).Refused(), Refusal::SessionBusy);
        EXPECT_EQ(sessions_->TakeTurn(id, kAnnas).Refused(), Refusal::SessionBusy)
            << "a refused one gave the turn back";
    }
    EXPECT_EQ(sessions_->TakeTurn(id, kAnnas).Refused(), Refusal::None);
}

TEST_F(SessionsTest, MoreAudioThanTimeHasPassedGoesBehindOthers) {
    Open(1);
    Add(kAnnas, 0);
    const std::string id = Start(kAnnas);
    const auto ahead = [&](std::size_t samples) {
        Sessions::Turn turn = sessions_->TakeTurn(id, kAnnas);
        return sessions_->GoesAheadOfTime(turn, samples);
    };
    EXPECT_FALSE(ahead(16'384)) << "a full slice after a hiccup";
    EXPECT_TRUE(ahead(16'384));
    EXPECT_TRUE(ahead(0));
}

TEST(LoadTest, ItIsTooHighWhileExchangesTakeLongerThanTheirAudio) {
    Load load;
    const Load::Time start{1h};
    load.Note(10ms, 200ms, start); // nobody notices
    load.Note(1s, 900ms, start);
    EXPECT_FALSE(load.IsTooHigh(start));
    load.Note(1s, 1100ms, start + 1s);
    EXPECT_TRUE(load.IsTooHigh(start + 1s));
    EXPECT_EQ(load.Longest(start + 1s), 1100ms);
    for (int second = 2; second < 6; ++second) {
        load.Note(5s, 10ms, start + std::chrono::seconds(second));
    }
    EXPECT_FALSE(load.IsTooHigh(start + 6s));
    EXPECT_FALSE(load.IsTooHigh(start + 1h)) << "nobody speaks any more";
}

TEST_F(SessionsTest, TheQuotaIsTheKeysForAllOfItsSessionsTogether) {
    Open(2);
    Add(kAnnas, 150);
    const std::string first = Start(kAnnas);
    const std::string second = Start(kAnnas);
    EXPECT_EQ(Exchange(first, kAnnas, silence_).refusal, Refusal::None);  // 100 ms
    EXPECT_EQ(Exchange(second, kAnnas, silence_).refusal, Refusal::None); // 50 of 100
    EXPECT_EQ(ledger_.Find(kAnnas)->usedMs, 150);
    EXPECT_EQ(Exchange(first, kAnnas).refusal, Refusal::QuotaExceeded);
    EXPECT_EQ(Exchange(second, kAnnas, silence_).refusal, Refusal::QuotaExceeded);
    EXPECT_EQ(sessions_->Figures().sessions, 0U);
}

TEST_F(SessionsTest, WhileUsageCannotBeStoredNobodyIsLetInAndCaptionsGoOn) {
    Open(2);
    Add(kAnnas, 0);
    Add(kBens, 0);
    const std::string id = Start(kAnnas);
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open((folder_ / "accounts.db").c_str(), &other), SQLITE_OK);
    sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    testing::internal::CaptureStderr();
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    Refusal refusal = Refusal::None;
    while (refusal != Refusal::CannotStore && std::chrono::steady_clock::now() < deadline) {
        ASSERT_EQ(Exchange(id, kAnnas, silence_).refusal, Refusal::None);
        const StartAnswer answer = sessions_->Start(kBens, kLanguages);
        refusal = answer.refusal;
        sessions_->Stop(answer.sessionId, kBens);
    }
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(refusal, Refusal::CannotStore);
    EXPECT_NE(log.find("cannot be stored"), std::string::npos);
    EXPECT_EQ(log.find("cannot be stored"), log.rfind("cannot be stored"));
    sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(other);
    while (refusal != Refusal::None && std::chrono::steady_clock::now() < deadline) {
        refusal = sessions_->Start(kBens, kLanguages).refusal;
    }
    EXPECT_EQ(refusal, Refusal::None) << "it stayed closed";
}

TEST_F(SessionsTest, TheEndHandsOutTheSentenceInHand) {
    Open(2);
    Add(kAnnas, 0);
    const std::string id = Start(kAnnas);
    Start(kAnnas); // its client is gone
    const std::vector<Recording> recordings = Recordings();
    Exchange(id, kAnnas, std::span(recordings[0].samples).first(16'000 * 3 / 2));
    std::jthread ending([&] { sessions_->EndAll(300ms); });
    Add(kBens, 0);
    while (sessions_->Start(kBens, kLanguages).refusal == Refusal::NoDecoderFree) {
        std::this_thread::yield(); // until it has begun
    }
    const ExchangeAnswer last = Exchange(id, kAnnas);
    ASSERT_FALSE(last.captions.empty());
    EXPECT_TRUE(last.captions.back().isFinal);
    EXPECT_FALSE(last.captions.back().original.empty());
    EXPECT_EQ(Exchange(id, kAnnas).refusal, Refusal::SessionNotFound);
    EXPECT_EQ(sessions_->Start(kAnnas, kLanguages).refusal, Refusal::Ending);
}

} // namespace
} // namespace service

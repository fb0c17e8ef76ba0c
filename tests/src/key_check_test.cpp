#include "popup_probe.h"
#include "scripted_service.h"
#include "stored_values.h"
#include "test_service_url.h"
#include "wine.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

using namespace std::chrono_literals;

// Holds answers back until it is opened.
class Gate {
public:
    void Open() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        opened_.notify_all();
    }
    void Pass() {
        std::unique_lock lock(mutex_);
        opened_.wait(lock, [this] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable opened_;
    bool open_ = false;
};

// Keys that begin with "good" are valid.
ScriptedAnswer Judge(const ScriptedRequest& request) {
    const bool good = request.target.find("access_key=good") != std::string::npos;
    return {.body = good ? R"({"valid":true,"unlimited":true})" : R"({"valid":false})"};
}

class KeyCheck : public testing::Test {
protected:
    KeyCheck() {
        SetServiceUrl(service.Url());
        SetKeyStatusAccess({service.Port(), false});
        service.SetHandler(Judge);
    }
    // Also after a failure: the check must be able to end.
    ~KeyCheck() override { gate.Open(); }

    // True once the service has been asked about the key; the answer about it waits for the gate,
    // or where that does not end the wait of one who gives it up, comes byte by byte.
    bool AskWithoutAnswer(const std::string& key) {
        service.SetHandler([this, key](const ScriptedRequest& request) {
            ScriptedAnswer answer = Judge(request);
            if (request.target.ends_with("=" + key)) {
                if (IsWine()) {
                    answer.pace = 50ms;
                } else {
                    gate.Pass();
                }
            }
            return answer;
        });
        probe.SetKey(key);
        probe.Popup().Show(); // asks at once
        return service.WaitForRequests(1);
    }
    bool Becomes(KeyStatus status) {
        return probe.PumpUntil([&] { return probe.Status() == status; });
    }
    bool Idle() {
        return probe.PumpUntil([&] { return !probe.CheckInFlight(); });
    }

    Gate gate; // outlives the service's threads
    ScriptedService service;
    PopupProbe probe;
};

TEST_F(KeyCheck, AsksOnceTheUserHasStoppedTyping) {
    probe.Type("good-1");
    EXPECT_EQ(probe.Status(), KeyStatusChecking) << "from the first character on";
    EXPECT_TRUE(probe.Animated());
    ASSERT_TRUE(Becomes(KeyStatusValid));
    EXPECT_EQ(probe.StatusText(), "Valid  ·  Unlimited");
    EXPECT_FALSE(probe.Animated());
    ASSERT_EQ(service.Requests().size(), 1u);
    EXPECT_EQ(service.Requests()[0].method, "GET");
    EXPECT_EQ(service.Requests()[0].target, "/key/status?access_key=good-1");
    EXPECT_EQ(service.Requests()[0].Header("User-Agent"), "KelvarinClient/1.0");
    EXPECT_EQ(service.Requests()[0].Header("Content-Type"), "");
    probe.Type("x"); // another key
    probe.SetKey("bad");
    EXPECT_TRUE(Becomes(KeyStatusInvalid));
    EXPECT_EQ(service.Requests().size(), 2u);
}

TEST_F(KeyCheck, AnEmptiedFieldShowsNothingAndGivesTheCheckUp) {
    ASSERT_TRUE(AskWithoutAnswer("good"));
    probe.SetKey("");
    EXPECT_EQ(probe.Status(), KeyStatusNone);
    ASSERT_TRUE(Idle()) << "with no answer";
    probe.Pump();
    EXPECT_EQ(probe.Status(), KeyStatusNone);
}

TEST_F(KeyCheck, ANewKeyDoesNotWaitForTheAnswerAboutTheOneBefore) {
    ASSERT_TRUE(AskWithoutAnswer("bad"));
    probe.SetKey("good");
    bool refused = false;
    ASSERT_TRUE(probe.PumpUntil([&] {
        refused = refused || probe.Status() == KeyStatusInvalid;
        return probe.Status() == KeyStatusValid;
    }));
    EXPECT_FALSE(refused) << "the first answer was about another key";
    EXPECT_EQ(service.Requests().size(), 2u);
}

TEST_F(KeyCheck, AKeyTakenOutAndPutBackDuringACheckIsAskedAboutAgain) {
    ASSERT_TRUE(AskWithoutAnswer("good"));
    probe.SetKey("");
    service.SetHandler(Judge);
    probe.SetKey("good");
    EXPECT_TRUE(Becomes(KeyStatusValid)) << "the first check was cancelled";
    EXPECT_EQ(service.Requests().size(), 2u);
}

TEST_F(KeyCheck, RepeatsItselfForAKeyThatWorksOrIsUsedUpOnly) {
    std::atomic<bool> granted{false};
    service.SetHandler([&](const ScriptedRequest&) {
        return ScriptedAnswer{.body = granted ? R"({"valid":true,"initial_seconds":60})"
                                              : R"({"valid":false,"reason":"quota_exceeded"})"};
    });
    probe.SetKey("key");
    probe.Popup().Show();
    ASSERT_TRUE(Becomes(KeyStatusQuotaExhausted));
    ASSERT_TRUE(Idle());
    granted = true;
    probe.RefreshTimer();
    EXPECT_EQ(probe.Status(), KeyStatusChecking);
    ASSERT_TRUE(Becomes(KeyStatusValid)) << "recovered by itself";
    ASSERT_TRUE(Idle());
    service.SetHandler([](const ScriptedRequest&) { return ScriptedAnswer{.status = 503}; });
    probe.RefreshTimer();
    ASSERT_TRUE(Becomes(KeyStatusUnavailable));
    ASSERT_TRUE(Idle());
    const std::size_t asked = service.Requests().size();
    probe.RefreshTimer();
    EXPECT_EQ(probe.Status(), KeyStatusUnavailable);
    EXPECT_EQ(service.Requests().size(), asked);
    service.SetHandler(Judge);
    probe.SetKey("good");
    EXPECT_TRUE(Becomes(KeyStatusValid)) << "a new edit asks again";
}

TEST_F(KeyCheck, AServiceThatCannotBeReachedIsSaidToBeSo) {
    service.Stop();
    probe.SetKey("good");
    probe.Popup().Show();
    ASSERT_TRUE(Becomes(KeyStatusUnavailable));
    EXPECT_EQ(probe.StatusText(), "Unable to fetch status");
    ASSERT_TRUE(Idle());
    service.Start();
    probe.Popup().Show();
    EXPECT_TRUE(Becomes(KeyStatusValid));
}

TEST_F(KeyCheck, AStoredKeyIsCheckedWithThePopupStillHidden) {
    WriteStoredText(probe.Store(), TEXT("access_key"), TEXT("good"));
    probe.Restart();
    EXPECT_EQ(probe.Status(), KeyStatusChecking);
    EXPECT_TRUE(Becomes(KeyStatusValid));
    EXPECT_FALSE(probe.Popup().IsVisible());
}

TEST_F(KeyCheck, GoesWithThePopup) {
    ASSERT_TRUE(AskWithoutAnswer("good"));
    const auto flags = probe.Flags();
    probe.DestroyPopup();
    EXPECT_TRUE(probe.PumpUntil([&] { return !flags->checkInFlight; }));
}

TEST_F(KeyCheck, OddKeysAreSentAsTheyStandOrNotAtAll) {
    for (const char* key : {"a b&c#d\"e", "ключ", "%41", "a\r\nX-Injected: b"}) {
        probe.SetKey(key);
        probe.Popup().Show();
        EXPECT_TRUE(probe.PumpUntil([&] {
            return !probe.CheckInFlight() && probe.Status() != KeyStatusChecking;
        })) << key;
        probe.Popup().Hide();
    }
    for (const ScriptedRequest& request : service.Requests()) {
        EXPECT_EQ(request.Header("X-Injected"), "") << "a line break must not end the request line";
    }
    probe.SetKey(std::string(10000, 'k'));
    probe.Popup().Show();
    EXPECT_TRUE(Becomes(KeyStatusInvalid));
    EXPECT_EQ(service.Requests().back().target.size(),
              std::string("/key/status?access_key=").size() + 255);
}

TEST_F(KeyCheck, NeverHoldsUpTheWindowsThread) {
    ASSERT_TRUE(AskWithoutAnswer("good"));
    // Messages are served although the service does not answer.
    const float before = probe.Phase();
    EXPECT_TRUE(probe.PumpUntil([&] { return probe.Phase() != before; }));
    EXPECT_TRUE(probe.CheckInFlight());
    gate.Open();
    EXPECT_TRUE(Becomes(KeyStatusValid));
}

} // namespace

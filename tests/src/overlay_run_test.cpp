#include "overlay_probe.h"
#include "scripted_endpoints.h"
#include "scripted_service.h"
#include "stored_values.h"
#include "test_service_url.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>

namespace {

// A service, a microphone and a loudspeaker that do as they are told, and an overlay on them.
class OverlayRun : public testing::Test {
protected:
    explicit OverlayRun(const StoredSettings& settings = {}) {
        RemoveTranscripts();
        SetServiceUrl(service.Url());
        service.SetHandler([this](const ScriptedRequest& request) { return Answer(request); });
        overlay = std::make_unique<OverlayProbe>(settings);
    }
    ~OverlayRun() override {
        overlay.reset();
        for (int i = 0; i < 2000 && !AllEnded(); ++i) {
            Sleep(10); // workers live on without their window, to the end of their requests
        }
        EXPECT_TRUE(AllEnded());
        EXPECT_EQ(OpenCaptures(), 0);
    }

    ScriptedAnswer Answer(const ScriptedRequest& request) {
        ScriptedAnswer answer;
        answer.delay = slowness;
        if (request.target == "/session/start") {
            answer.status = startStatus;
            answer.body = R"({"session_id":"s-1"})";
        } else if (request.target == "/session/exchange") {
            answer.body = "[]";
            if (const int status = exchangeStatus.exchange(200); status != 200) {
                answer.status = status;
                answer.body = R"({"detail":"quota_exceeded"})";
            } else if (finals > 0) {
                const std::string number = std::to_string(finals--);
                answer.body = R"([{"original":"said )" + number + R"(","translated":"meant )" +
                              number +
                              R"(","is_final":true,"source_lang":"en","target_lang":"zh"}])";
            }
        } else if (request.method == "GET") {
            answer.body =
                keyValid ? R"({"valid":true})" : R"({"valid":false,"reason":"key_not_found"})";
        } else {
            answer.body = "{}";
        }
        return answer;
    }

    void Start() {
        overlay->Command(kStartButton);
        runs.push_back(overlay->CurrentRun());
    }
    bool Settled(const std::string& status) {
        return overlay->PumpUntil([&] { return overlay->Status() == status; });
    }
    void StartAndWait() {
        Start();
        ASSERT_TRUE(overlay->PumpUntil([&] { return overlay->IsRunning(); })) << overlay->Status();
    }
    static void StoreDevices(const WCHAR* micName, const WCHAR* loopbackName) {
        HKEY key = nullptr;
        RegCreateKeyExW(HKEY_CURRENT_USER, TEXT("Software\\Kelvarin\\Config"), 0, nullptr, 0,
                        KEY_ALL_ACCESS, nullptr, &key, nullptr);
        WriteStoredText(key, TEXT("mic_device_name"), micName);
        WriteStoredText(key, TEXT("loopback_device_name"), loopbackName);
        RegCloseKey(key);
    }
    int RequestsTo(const char* target) const {
        const auto requests = service.Requests();
        return static_cast<int>(std::count_if(requests.begin(), requests.end(),
                                              [&](const auto& r) { return r.target == target; }));
    }
    bool ListensTo(bool useMic, bool useLoopback) {
        return overlay->PumpUntil(
            [&] { return mic.Running() == useMic && speaker.Running() == useLoopback; });
    }
    // The overlay itself holds the last run: by its own reference and in the translator's callback.
    bool WorkersEnded() const { return runs.back().use_count() <= 2; }
    bool AllEnded() const {
        return std::all_of(runs.begin(), runs.end(),
                           [](const auto& run) { return run.expired() || run.use_count() == 0; });
    }
    int OpenCaptures() const { return mic.Running() + speaker.Running(); }

    std::atomic<std::chrono::milliseconds> slowness{}; // of each answer
    std::atomic<int> startStatus{200};
    std::atomic<int> exchangeStatus{200}; // of the next exchange alone
    std::atomic<bool> keyValid{true};
    std::atomic<int> finals{0}; // results to send, one an exchange
    ScriptedService service;
    ScriptedEndpoints scene;
    ScriptedEndpoint& speaker = scene.Add(TEXT("speaker"), eRender);
    ScriptedEndpoint& mic = scene.Add(TEXT("mic"), eCapture);
    std::unique_ptr<OverlayProbe> overlay;
    std::vector<std::weak_ptr<TranslationRun>> runs;
};

TEST_F(OverlayRun, GoesThroughTheStatesOfAnOrdinaryRun) {
    Start();
    EXPECT_EQ(overlay->Status(), "Connecting to server …");
    EXPECT_FALSE(overlay->Lit());
    ASSERT_TRUE(overlay->PumpUntil([&] { return overlay->IsRunning(); }));
    EXPECT_EQ(overlay->Status(), "");
    EXPECT_TRUE(overlay->Lit());
    EXPECT_EQ(mic.Running(), 1);
    overlay->Command(kStopButton);
    EXPECT_EQ(overlay->Status(), "Pausing …");
    EXPECT_TRUE(overlay->IsRunning());
    ASSERT_TRUE(Settled("Paused"));
    EXPECT_FALSE(overlay->Lit());
    EXPECT_EQ(OpenCaptures(), 0);
}

// The limit leaves room for a busy machine; one wait would take five seconds.
TEST_F(OverlayRun, NothingThatTheUserDoesWaitsForTheNetwork) {
    slowness = std::chrono::seconds(5);
    const auto quick = [&](const char* what, const std::function<void()>& act) {
        const auto began = std::chrono::steady_clock::now();
        act();
        overlay->Pump();
        EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(2)) << what;
    };
    quick("start", [&] { Start(); });
    for (const int id : {kLoopbackButton, kSettingsButton, kSettingsButton, kClearButton,
                         kTranslationButton, kHideButton, kStopButton}) {
        quick("a button", [&] { overlay->Command(id); });
    }
    quick("start again", [&] { Start(); });
    quick("the settings, whose key is being checked", [&] {
        overlay->Command(kSettingsButton);
        overlay->Command(kSettingsButton);
    });
    quick("exit", [&] { overlay->Tray().RunCommand(1004); });
    EXPECT_FALSE(IsWindow(overlay->Window()));
}

TEST_F(OverlayRun, LocksTheSettingsAndUnlocksThemHoweverItEnds) {
    EXPECT_FALSE(overlay->SettingsLocked());
    for (const bool refused : {false, true}) {
        StartAndWait();
        EXPECT_TRUE(overlay->SettingsLocked());
        if (refused) {
            exchangeStatus = 403;
        } else {
            overlay->Command(kStopButton);
            EXPECT_TRUE(overlay->SettingsLocked()) << "until it has stopped";
        }
        ASSERT_TRUE(overlay->PumpUntil([&] { return !overlay->IsRunning(); }));
        EXPECT_FALSE(overlay->SettingsLocked());
    }
}

TEST_F(OverlayRun, ListensToTheDevicesThatWereChosen) {
    ScriptedEndpoint& otherSpeaker = scene.Add(TEXT("speaker 2"), eRender);
    ScriptedEndpoint& otherMic = scene.Add(TEXT("mic 2"), eCapture);
    otherSpeaker.name = TEXT("Second speaker");
    otherMic.name = TEXT("Second microphone");
    StoreDevices(TEXT("Second microphone"), TEXT("Second speaker"));
    overlay->Command(kLoopbackButton);
    StartAndWait();
    EXPECT_TRUE(overlay->PumpUntil([&] { return otherMic.Running() && otherSpeaker.Running(); }));
    EXPECT_EQ(OpenCaptures(), 0);
    overlay->Command(kMicrophoneButton); // and so does a switch
    EXPECT_TRUE(overlay->PumpUntil([&] { return !otherMic.Running(); }));
    EXPECT_TRUE(overlay->PumpUntil([&] { return otherSpeaker.Running() == 1; }));
    EXPECT_EQ(OpenCaptures(), 0);
    StoreDevices(TEXT(""), TEXT(""));
}

TEST_F(OverlayRun, KeepsResultsThatWaitWhenTheNextRunBegins) {
    StartAndWait();
    TranslationResult waiting;
    waiting.original = TEXT("from before");
    waiting.isFinal = true;
    PostResult(overlay->Window(), waiting);
    PostMessageW(overlay->Window(), kMsgStopped, 0, 0); // of the old run, and not of the new one
    Start();
    overlay->Pump();
    ASSERT_EQ(overlay->Captions().size(), 1u);
    EXPECT_NE(overlay->Status(), "Paused");
    EXPECT_TRUE(Settled(""));
}

TEST_F(OverlayRun, SwitchesItsSourceWithoutTouchingTheSession) {
    StartAndWait();
    overlay->Command(kLoopbackButton);
    EXPECT_TRUE(ListensTo(true, true));
    overlay->Command(kMicrophoneButton);
    EXPECT_TRUE(ListensTo(false, true));
    overlay->Command(kLoopbackButton);
    ASSERT_TRUE(Settled("Audio paused — enable a source above"));
    EXPECT_EQ(OpenCaptures(), 0);
    EXPECT_TRUE(overlay->IsRunning());
    mic.Fail("Start", E_FAIL);
    overlay->Command(kMicrophoneButton);
    ASSERT_TRUE(Settled("Audio switch failed — check device"));
    EXPECT_FALSE(overlay->StatusIsError());
    EXPECT_TRUE(overlay->IsRunning());
    mic.Fail("Start", S_OK);
    overlay->Command(kLoopbackButton);
    EXPECT_TRUE(Settled(""));
    overlay->Command(kStopButton);
    ASSERT_TRUE(Settled("Paused"));
    EXPECT_EQ(OpenCaptures(), 0);
    EXPECT_EQ(RequestsTo("/session/start"), 1);
}

// A sound server that hangs: the overlay must stay alive, and nothing may be left open behind it.
TEST_F(OverlayRun, SwitchesToTheLastOfManyChoicesWithoutOpeningThoseBetween) {
    StartAndWait();
    speaker.Hold("Start");
    overlay->Command(kLoopbackButton);
    ASSERT_TRUE(speaker.WaitUntilHeld());
    for (int i = 0; i < 10; ++i) {
        overlay->Command(kMicrophoneButton);
        overlay->Command(kLoopbackButton);
    }
    overlay->Command(kMicrophoneButton); // the loudspeaker alone is left
    EXPECT_EQ(mic.Running(), 1) << "opened before the loudspeaker, in the choice that hangs";
    speaker.LetGo();
    EXPECT_TRUE(ListensTo(false, true));
    EXPECT_TRUE(Settled(""));
    EXPECT_EQ(mic.CallsOf("Start"), 2);
    EXPECT_EQ(speaker.CallsOf("Start"), 2);
}

TEST_F(OverlayRun, StoppedWhileADeviceIsBeingOpenedLeavesNoneOpen) {
    for (const bool byService : {false, true}) {
        StartAndWait();
        speaker.Hold("Start");
        overlay->Command(kLoopbackButton);
        ASSERT_TRUE(speaker.WaitUntilHeld());
        const char* const words = byService ? "⚠ Out of quota" : "Pausing …";
        if (byService) {
            exchangeStatus = 403;
        } else {
            overlay->Command(kStopButton);
        }
        EXPECT_TRUE(Settled(words));
        speaker.LetGo();
        EXPECT_TRUE(overlay->PumpUntil([&] { return WorkersEnded(); }));
        overlay->Pump();
        EXPECT_EQ(overlay->Status(), byService ? words : "Paused");
        EXPECT_EQ(OpenCaptures(), 0);
        overlay->Command(kLoopbackButton); // off again
    }
}

TEST_F(OverlayRun, FollowsASourceThatWasSwitchedWhileItConnected) {
    mic.Hold("Start");
    Start();
    ASSERT_TRUE(mic.WaitUntilHeld());
    overlay->Command(kMicrophoneButton);
    overlay->Command(kLoopbackButton);
    EXPECT_EQ(overlay->Status(), "Connecting to server …");
    mic.LetGo();
    EXPECT_TRUE(overlay->PumpUntil([&] { return overlay->IsRunning(); }));
    EXPECT_TRUE(ListensTo(false, true));
    EXPECT_EQ(mic.CallsOf("Start"), 1) << "the run begins with what it was started with";
}

TEST_F(OverlayRun, RefusedBeforeItsDeviceIsOpenKeepsTheReasonAndNeverRuns) {
    for (const HRESULT opening : {S_OK, E_FAIL}) {
        mic.Hold("Start");
        mic.Fail("Start", opening);
        exchangeStatus = 403;
        Start();
        ASSERT_TRUE(mic.WaitUntilHeld());
        ASSERT_TRUE(Settled("⚠ Out of quota"));
        mic.LetGo();
        EXPECT_TRUE(overlay->PumpUntil([&] {
            EXPECT_FALSE(overlay->IsRunning());
            return WorkersEnded();
        }));
        overlay->Pump();
        EXPECT_EQ(overlay->Status(), "⚠ Out of quota");
        EXPECT_EQ(OpenCaptures(), 0);
    }
}

TEST_F(OverlayRun, TellsThatASourceHasEndedAndBringsItBackWhenItIsPressedTwice) {
    const auto unplug = [](ScriptedEndpoint& device) { device.Fail("GetNextPacketSize", E_FAIL); };
    const auto plugIn = [](ScriptedEndpoint& device) { device.Fail("GetNextPacketSize", S_OK); };
    const char* const lost = "Audio switch failed — check device";
    unplug(mic);
    mic.Push(Int16Packet({1})); // its end may be told before the run is
    StartAndWait();
    for (const bool mixed : {false, true}) {
        for (ScriptedEndpoint* device : {&mic, &speaker}) {
            if (!mixed && device == &speaker) {
                continue;
            }
            unplug(*device);
            ASSERT_TRUE(Settled(lost));
            EXPECT_FALSE(overlay->StatusIsError());
            EXPECT_TRUE(overlay->IsRunning());
            EXPECT_TRUE(overlay->Lit());
            plugIn(*device);
            const int button = device == &mic ? kMicrophoneButton : kLoopbackButton;
            overlay->Command(button);
            overlay->Command(button);
            ASSERT_TRUE(Settled(""));
        }
        overlay->Command(kLoopbackButton);
        ASSERT_TRUE(ListensTo(true, !mixed));
    }
    unplug(mic);
    overlay->Command(kStopButton);
    EXPECT_TRUE(Settled("Paused")) << "what ends in a run that stops is not told";
}

struct FailureCase {
    const char* name;
    int startStatus;
    bool keyValid;
    HRESULT micResult;
    const char* words;
};
void PrintTo(const FailureCase& failure, std::ostream* out) {
    *out << failure.name;
}
class OverlayStartFailure : public OverlayRun, public testing::WithParamInterface<FailureCase> {};
TEST_P(OverlayStartFailure, EndsIdleWithItsReasonAndTheNextCleanStopSaysPausedAgain) {
    startStatus = GetParam().startStatus;
    keyValid = GetParam().keyValid;
    mic.Fail("Start", GetParam().micResult);
    Start();
    ASSERT_TRUE(Settled(GetParam().words)) << overlay->Status();
    EXPECT_TRUE(overlay->StatusIsError());
    EXPECT_FALSE(overlay->IsRunning());
    EXPECT_EQ(OpenCaptures(), 0);
    EXPECT_EQ(RequestsTo("/session/stop"), startStatus == 200 ? 1 : 0) << "a session is closed";
    startStatus = 200;
    keyValid = true;
    mic.Fail("Start", S_OK);
    StartAndWait();
    overlay->Command(kStopButton);
    EXPECT_TRUE(Settled("Paused")) << overlay->Status();
}
INSTANTIATE_TEST_SUITE_P(
    Overlay, OverlayStartFailure,
    testing::Values(FailureCase{"server", 500, true, S_OK, "Failed to connect to server"},
                    FailureCase{"key", 500, false, S_OK, "⚠ Invalid key"},
                    FailureCase{"device", 200, true, E_FAIL, "Failed to open audio device"}));

TEST_F(OverlayRun, EndedByTheServiceKeepsTheReasonAndOpensTheSettings) {
    StartAndWait();
    exchangeStatus = 403;
    ASSERT_TRUE(Settled("⚠ Out of quota"));
    EXPECT_TRUE(overlay->PopupVisible());
    ASSERT_TRUE(overlay->PumpUntil([&] { return AllEnded() || OpenCaptures() == 0; }));
    overlay->Pump();
    EXPECT_EQ(overlay->Status(), "⚠ Out of quota");
    EXPECT_FALSE(overlay->IsRunning());
}

class OverlayWithoutKey : public OverlayRun {
protected:
    OverlayWithoutKey() : OverlayRun({TEXT(""), true, false, 0}) {}
};
TEST_F(OverlayWithoutKey, AsksForOneAndConnectsToNothing) {
    overlay->Command(kStartButton);
    EXPECT_EQ(overlay->Status(), "Please enter Access Key in config");
    EXPECT_TRUE(overlay->PopupVisible());
    EXPECT_TRUE(overlay->CurrentRun().expired());
    EXPECT_TRUE(service.Requests().empty());
}

TEST_F(OverlayRun, LosesNoFinalResultAcrossStopStartClearAndFailure) {
    int sent = 0;
    const auto speak = [&](int count) {
        finals = count;
        sent += count;
        const std::size_t before = overlay->Captions().size();
        ASSERT_TRUE(overlay->PumpUntil([&] {
            return overlay->Captions().size() == before + static_cast<std::size_t>(count);
        }));
    };
    StartAndWait();
    speak(3);
    overlay->Command(kStopButton);
    ASSERT_TRUE(Settled("Paused"));
    StartAndWait();
    speak(2);
    exchangeStatus = 403;
    ASSERT_TRUE(Settled("⚠ Out of quota"));
    StartAndWait();
    speak(2);
    overlay->Command(kClearButton);
    speak(1);
    EXPECT_EQ(overlay->Captions().size(), 1u);
    overlay->Command(kStopButton);
    ASSERT_TRUE(Settled("Paused"));
    StartAndWait(); // into a file of its own, after the clear
    speak(1);
    int written = 0;
    for (const auto& name : TranscriptNames()) {
        const std::string text = TranscriptText(name);
        for (auto at = text.find("said "); at != std::string::npos;
             at = text.find("said ", at + 1)) {
            ++written;
        }
    }
    EXPECT_EQ(TranscriptNames().size(), 2u);
    EXPECT_EQ(written, sent);
}

// A program that is killed has lost nothing that the service will not send again.
TEST_F(OverlayRun, HasWrittenItsFinalCaptionsWhenItAsksForMore) {
    StartAndWait();
    finals = 5;
    const std::size_t before = service.Requests().size();
    ASSERT_TRUE(service.WaitForRequests(before + 8)); // and the overlay serves no message meanwhile
    const std::string text = TranscriptText(TranscriptNames().at(0));
    for (int number = 5; number > 0; --number) {
        EXPECT_NE(text.find("said " + std::to_string(number) + "\r\n"), std::string::npos) << text;
    }
    ASSERT_TRUE(overlay->PumpUntil([&] { return overlay->Captions().size() == 5; }));
    EXPECT_EQ(TranscriptText(TranscriptNames().at(0)), text) << "each of them once";
}

// ---- Every order -------------------------------------------------------------------------------

// What the state table says of the run that the user started last.
struct Model {
    bool started = false; // there has been a run
    bool willStart = true;
    bool stopAsked = false;
    bool killed = false; // by the service

    bool Up() const { return started && willStart && !stopAsked && !killed; }
};

class OverlayEveryOrder : public OverlayRun, public testing::WithParamInterface<unsigned> {
protected:
    void Act(unsigned choice) {
        switch (choice % 10) {
        case 0:
        case 1:
            if (!overlay->IsRunning()) { // else the toolbar offers to stop
                exchangeStatus = 200;
                Start();
                model = {true, startStatus == 200, false, false};
            }
            break;
        case 2:
        case 3:
            if (overlay->IsRunning()) {
                overlay->Command(kStopButton);
                model.stopAsked = true;
            }
            break;
        case 4:
            overlay->Command(kMicrophoneButton);
            break;
        case 5:
            overlay->Command(kLoopbackButton);
            break;
        case 6:
            overlay->Command(kClearButton);
            break;
        case 7:
            overlay->Pump(1);
            break;
        case 8:
            overlay->PumpUntil([until = std::chrono::steady_clock::now() +
                                        std::chrono::milliseconds(choice % 90)] {
                return std::chrono::steady_clock::now() > until;
            });
            break;
        default:
            Settle();
            Disturb(choice);
        }
    }

    // From here on the next start fails, or the session that is up ends.
    void Disturb(unsigned choice) {
        startStatus = choice % 3 == 0 ? 500 : 200;
        if (model.Up() && choice % 4 == 0) {
            exchangeStatus = 403;
            model.killed = true;
        }
    }

    // Everything that was under way has come to its end.
    void Settle() {
        ASSERT_TRUE(overlay->PumpUntil([&] {
            const auto others = std::count_if(runs.begin(), runs.end(),
                                              [](const auto& run) { return !run.expired(); });
            const auto run = overlay->CurrentRun().lock();
            return (run == nullptr || run->IsActive() == model.Up()) &&
                   overlay->IsRunning() == model.Up() && overlay->Lit() == model.Up() &&
                   others <= (model.started ? 1 : 0) &&
                   (mic.Running() > 0) == (model.Up() && overlay->UsesMic()) &&
                   (speaker.Running() > 0) == (model.Up() && overlay->UsesLoopback());
        })) << "running "
            << overlay->IsRunning() << " status " << overlay->Status() << " mic " << mic.Running()
            << " speaker " << speaker.Running() << "; expected up " << model.Up() << " mic "
            << overlay->UsesMic() << " loopback " << overlay->UsesLoopback();
        EXPECT_LE(mic.Running(), 1);
        EXPECT_LE(speaker.Running(), 1);
        exchangeStatus = 200;
    }

    Model model;
};

TEST_P(OverlayEveryOrder, FollowsTheStateTableAndLeavesNoCaptureOpen) {
    std::mt19937 random(GetParam());
    for (int step = 0; step < 120 && !HasFailure(); ++step) {
        Act(static_cast<unsigned>(random()));
    }
    // The destruction exits in whatever state this is.
}
INSTANTIATE_TEST_SUITE_P(Overlay, OverlayEveryOrder, testing::Range(1U, 7U));

} // namespace

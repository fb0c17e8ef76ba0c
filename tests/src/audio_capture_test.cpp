#include "audio_capture.h"
#include "pcm_collector.h"
#include "scripted_endpoints.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <map>
#include <random>
#include <regex>
#include <thread>

namespace {

using Samples = std::vector<std::int16_t>;
using Calls = std::vector<std::string>;

// Everything that `act` writes to the trace, stamps and line ends made uniform.
template <typename Act>
std::string TraceOf(const Act& act) {
    testing::internal::CaptureStderr();
    act();
    return std::regex_replace(testing::internal::GetCapturedStderr(), std::regex("\r\n"), "\n");
}

class Capture : public testing::Test {
protected:
    ~Capture() override {
        capture.reset();
        EXPECT_EQ(ScriptedEndpoints::LiveObjects(), 0) << "an object was not released";
    }

    PcmCallback Consumer() {
        return [this](const std::uint8_t* data, std::uint32_t bytes) { pcm.Take(data, bytes); };
    }

    ScriptedEndpoints scene;
    ScriptedEndpoint& speaker = scene.Add(TEXT("speaker"), eRender);
    ScriptedEndpoint& headset = scene.Add(TEXT("headset"), eRender);
    ScriptedEndpoint& mic = scene.Add(TEXT("mic"), eCapture);
    ScriptedEndpoint& camera = scene.Add(TEXT("camera"), eCapture);
    bool WaitForSourceEnds(int count) {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (sourceEnds < count && std::chrono::steady_clock::now() < limit) {
            std::this_thread::yield();
        }
        return sourceEnds == count;
    }

    PcmCollector pcm;
    std::atomic<int> sourceEnds{0};
    std::unique_ptr<AudioCapture> capture =
        std::make_unique<AudioCapture>([this] { ++sourceEnds; });
};

// ---- Devices -----------------------------------------------------------------------------------

TEST_F(Capture, ListsActiveEndpointsInTheSystemsOrderWithWhatCanBeRead) {
    headset.active = false;
    mic.format = MixFormat(44100, 1, 32, true);
    mic.name = TEXT("Mikrofon 麦克风");
    camera.nameType = VT_UI4;
    camera.Fail("Activate", E_FAIL);

    const auto microphones = AudioCapture::EnumerateDevices(eCapture);
    ASSERT_EQ(microphones.size(), 2u);
    EXPECT_EQ(microphones[0].id, TEXT("mic"));
    EXPECT_EQ(microphones[0].name, TEXT("Mikrofon 麦克风"));
    EXPECT_EQ(microphones[0].sampleRate, 44100u);
    EXPECT_EQ(microphones[0].channels, 1u);
    EXPECT_FALSE(microphones[0].loopback);
    EXPECT_EQ(microphones[1].id, TEXT("camera"));
    EXPECT_EQ(microphones[1].name, TEXT(""));
    EXPECT_EQ(microphones[1].sampleRate, 0u);

    const auto outputs = AudioCapture::EnumerateDevices(eRender);
    ASSERT_EQ(outputs.size(), 1u);
    EXPECT_TRUE(outputs[0].loopback);
}

TEST_F(Capture, AFailingCallCostsAFieldOrARowAndNothingElse) {
    for (const char* call : {"GetId", "OpenPropertyStore", "GetValue", "GetMixFormat"}) {
        mic.Fail(call, E_FAIL);
    }
    auto found = AudioCapture::EnumerateDevices(eCapture);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].id, TEXT(""));
    EXPECT_EQ(found[0].name, TEXT(""));
    EXPECT_EQ(found[0].channels, 0u);

    scene.Fail("Item", E_FAIL); // of the first index
    found = AudioCapture::EnumerateDevices(eCapture);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].id, TEXT("camera"));

    for (const char* call : {"EnumAudioEndpoints", "CoCreateInstance"}) {
        scene.Fail(call, E_FAIL);
        EXPECT_TRUE(AudioCapture::EnumerateDevices(eCapture).empty()) << call;
    }
}

// ---- Starts ------------------------------------------------------------------------------------

TEST_F(Capture, OpensTheNamedOrTheDefaultEndpointOfItsDirection) {
    ASSERT_TRUE(capture->StartLoopback(TEXT(""), Consumer()));
    EXPECT_EQ(speaker.Calls(), (Calls{"Activate", "GetMixFormat", "Initialize(flags=131072)",
                                      "GetService", "Start"}));
    ASSERT_TRUE(capture->StartMic(TEXT("camera"), Consumer()));
    EXPECT_EQ(speaker.Running(), 0) << "the former stream must have been stopped first";
    EXPECT_EQ(camera.Calls(), (Calls{"Activate", "GetMixFormat", "Initialize(flags=262144)",
                                     "SetEventHandle", "GetService", "Start"}));
    EXPECT_EQ(mic.Calls(), Calls{});
    capture->Stop();
    EXPECT_EQ(camera.Running(), 0);
}

struct StartFailure {
    const char* call;
    bool loopback;
    const char* deviceId;
    const char* traced; // how the failed call stands in the trace
};

void PrintTo(const StartFailure& test, std::ostream* out) {
    *out << test.call;
}

class CaptureStart : public Capture, public testing::WithParamInterface<StartFailure> {};

TEST_P(CaptureStart, AFailedStepIsTracedReleasesTheCallbackAndCanBeTriedAgain) {
    const StartFailure& failure = GetParam();
    const WideString id = Utf8ToWide(failure.deviceId);
    ScriptedEndpoint& endpoint = failure.loopback ? speaker : mic;
    const auto start = [&](PcmCallback callback) {
        return failure.loopback ? capture->StartLoopback(id, std::move(callback))
                                : capture->StartMic(id, std::move(callback));
    };
    scene.Fail(failure.call, static_cast<HRESULT>(0x88890004));
    endpoint.Fail(failure.call, static_cast<HRESULT>(0x88890004));
    auto held = std::make_shared<int>(0);
    const std::string trace = TraceOf([&] {
        EXPECT_FALSE(start([held](const std::uint8_t*, std::uint32_t) {}));
        EXPECT_EQ(held.use_count(), 1);
    });
    EXPECT_NE(trace.find(failure.traced), std::string::npos) << trace;
    EXPECT_NE(trace.find("hr=0x88890004"), std::string::npos) << trace;
    EXPECT_EQ(endpoint.Running(), 0);

    scene.Fail(failure.call, S_OK);
    endpoint.Fail(failure.call, S_OK);
    EXPECT_TRUE(start(Consumer()));
    endpoint.Push(Int16Packet({1, 2, 3}));
    EXPECT_TRUE(pcm.WaitForSamples(3));
}

INSTANTIATE_TEST_SUITE_P(
    Steps, CaptureStart,
    testing::Values(
        StartFailure{"CoCreateInstance", true, "",
                     "(CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL, "
                     "__uuidof(IMMDeviceEnumerator), (void**)&pEnum))\n"},
        StartFailure{"GetDefaultAudioEndpoint", true, "",
                     "(pEnum->GetDefaultAudioEndpoint(flow, eConsole, &device_))\n"},
        StartFailure{"GetDevice", false, "mic", "(pEnum->GetDevice(deviceId.c_str(), &device_))\n"},
        StartFailure{"Activate", false, "mic",
                     "(device_->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, "
                     "(void**)&client_))\n"},
        StartFailure{"GetMixFormat", true, "", "(client_->GetMixFormat(&fmt_))\n"},
        StartFailure{"Initialize", true, "", "[AUDIO]   Initialize FAILED hr=0x88890004\n"},
        StartFailure{"SetEventHandle", false, "", "(client_->SetEventHandle(hEvent_))\n"},
        StartFailure{"GetService", false, "",
                     "(client_->GetService(__uuidof(IAudioCaptureClient), (void**)&capture_))\n"},
        StartFailure{"Start", true, "", "(client_->Start())\n"}),
    [](const auto& test) { return std::string(test.param.call); });

TEST_F(Capture, TracesAStartAndAStopAsTheyHappen) {
    speaker.format = MixFormat(48000, 2, 32, true);
    const std::string trace = TraceOf([&] {
        ASSERT_TRUE(capture->StartLoopback(TEXT(""), Consumer()));
        capture->Stop();
    });
    // The thread's first line comes at its own time.
    const std::string threadStarted = "[AUDIO] CaptureThread started  loopback=1  isFloat=1\n";
    std::string rest = trace;
    ASSERT_NE(rest.find(threadStarted), std::string::npos) << trace;
    rest.erase(rest.find(threadStarted), threadStarted.size());
    EXPECT_EQ(rest, "[AUDIO] StartLoopback  deviceId=(default)\n"
                    "[AUDIO] StartInternal  loopback=1\n"
                    "[AUDIO] Stop() called\n"
                    "[AUDIO] Stop() done\n"
                    "[AUDIO]   MixFormat: 48000 Hz, 2 ch, 32 bit, tag=65534, isFloat=1\n"
                    "[AUDIO]   Capture thread launched\n"
                    "[AUDIO] Stop() called\n"
                    "[AUDIO] CaptureThread exiting  cbFires=0\n"
                    "[AUDIO] Stop() done\n");
}

// A device that hangs in the opening can still be told by its format.
TEST_F(Capture, TracesTheMixFormatBeforeTheStreamIsInitialised) {
    speaker.Hold("Initialize");
    testing::internal::CaptureStderr();
    std::thread opening([&] { EXPECT_TRUE(capture->StartLoopback(TEXT(""), Consumer())); });
    const bool reached = speaker.WaitUntilHeld();
    const std::string trace = testing::internal::GetCapturedStderr();
    speaker.LetGo();
    opening.join();
    EXPECT_TRUE(reached);
    EXPECT_NE(trace.find("[AUDIO]   MixFormat: 16000 Hz"), std::string::npos) << trace;
}

// ---- Packets -----------------------------------------------------------------------------------

class CapturePackets : public Capture, public testing::WithParamInterface<bool> {
protected:
    ScriptedEndpoint& Source() { return GetParam() ? speaker : mic; }
    bool Start() {
        return GetParam() ? capture->StartLoopback(TEXT(""), Consumer())
                          : capture->StartMic(TEXT(""), Consumer());
    }
};

TEST_P(CapturePackets, DeliversOneChunkForEachPacketThatIsHeard) {
    ASSERT_TRUE(Start());
    ScriptedPacket silent = Int16Packet({7, 7, 7});
    silent.flags = AUDCLNT_BUFFERFLAGS_SILENT;
    ScriptedPacket odd = Int16Packet({4, 5});
    odd.flags = AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY;
    Source().Push(Int16Packet({1, 2, 3}));
    Source().Push(silent);
    Source().Push(ScriptedPacket{});
    Source().Push(odd);
    ASSERT_TRUE(pcm.WaitForSamples(5));
    ASSERT_TRUE(Source().WaitUntilDrained());
    EXPECT_EQ(pcm.Chunks(), (std::vector<Samples>{{1, 2, 3}, {4, 5}}));
    EXPECT_EQ(Source().CallsOf("ReleaseBuffer(wrong)"), 0);
}

TEST_P(CapturePackets, ConvertsEachPacketByTheMixFormat) {
    Source().format = MixFormat(48000, 2, 16, false);
    ASSERT_TRUE(Start());
    Source().Push(Int16Packet({9, 9}, 2)); // too short to give a sample
    Source().Push(Int16Packet({10, 20, 0, 0, 0, 0, 30, 50, 0, 0, 0, 0}, 2));
    ASSERT_TRUE(pcm.WaitForSamples(2));
    EXPECT_EQ(pcm.Chunks(), (std::vector<Samples>{{15, 40}}));
}

TEST_P(CapturePackets, TakesAndDropsPacketsOfAFormatThatItCannotConvert) {
    Source().format = MixFormat(16000, 1, 24, false);
    ASSERT_TRUE(Start());
    Source().Push(Int16Packet({1, 2, 3}));
    EXPECT_TRUE(Source().WaitUntilDrained());
    capture->Stop();
    EXPECT_TRUE(pcm.Chunks().empty());
}

TEST_P(CapturePackets, GoesOnAfterAPacketThatCouldNotBeFetched) {
    ASSERT_TRUE(Start());
    Source().Fail("GetBuffer", E_FAIL);
    Source().Push(Int16Packet({1, 2, 3}));
    ASSERT_TRUE(Source().WaitUntilFailed("GetBuffer"));
    Source().Fail("GetBuffer", S_OK);
    Source().Push(Int16Packet({4}));
    EXPECT_TRUE(pcm.WaitForSamples(4));
}

TEST_P(CapturePackets, EndsItsThreadWhenTheDeviceGoesAndStartsAgain) {
    const std::string trace = TraceOf([&] {
        ASSERT_TRUE(Start());
        Source().Push(Int16Packet({1, 2, 3}));
        ASSERT_TRUE(pcm.WaitForSamples(3));
        Source().Fail("GetNextPacketSize", static_cast<HRESULT>(0x88890004));
        Source().Push(Int16Packet({4}));
        EXPECT_TRUE(WaitForSourceEnds(1));
        capture->Stop(); // must not wait for a device that has gone
    });
    EXPECT_NE(trace.find("[AUDIO] CaptureThread exiting  cbFires=1\n"), std::string::npos);
    Source().Fail("GetNextPacketSize", S_OK);
    ASSERT_TRUE(Start());
    EXPECT_TRUE(pcm.WaitForSamples(4));
    capture->Stop();
    EXPECT_EQ(sourceEnds, 1) << "a source that was asked to stop has not ended by itself";
}

INSTANTIATE_TEST_SUITE_P(Modes, CapturePackets, testing::Bool(),
                         [](const auto& test) { return test.param ? "Loopback" : "Mic"; });

TEST_F(Capture, TracesItsCountsEveryFiftyRoundsOfTheMicrophone) {
    const std::string trace = TraceOf([&] {
        ASSERT_TRUE(capture->StartMic(TEXT(""), Consumer()));
        for (std::size_t round = 1; round <= 50; ++round) {
            mic.Push(Int16Packet({1, 2}));
            ASSERT_TRUE(pcm.WaitForSamples(2 * round));
            ASSERT_TRUE(mic.WaitUntilDrained());
        }
        mic.Push(Int16Packet({3}));
        ASSERT_TRUE(pcm.WaitForSamples(101));
        capture->Stop();
    });
    // A packet can be seen by the round before its event, so two may fall into one round.
    EXPECT_TRUE(std::regex_search(
        trace, std::regex(R"(\[AUDIO\]   stats: packets=5\d silent=0 frames=1\d\d cbFires=5\d\n)")))
        << trace;
}

TEST_F(Capture, StopsAndReportsNothingWhenNothingRan) {
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(TraceOf([&] { capture->Stop(); }),
                  "[AUDIO] Stop() called\n[AUDIO] Stop() done\n");
    }
}

// ---- Mixed mode --------------------------------------------------------------------------------

TEST_F(Capture, MixedModePassesOneSourceUnchangedWhileTheOtherIsSilent) {
    ASSERT_TRUE(capture->StartMixed(TEXT(""), TEXT("headset"), Consumer()));
    EXPECT_EQ(mic.CallsOf("Initialize(flags=262144)"), 1);
    EXPECT_EQ(headset.CallsOf("Initialize(flags=131072)"), 1);
    mic.Push(Int16Packet({1, 2, 3}));
    ASSERT_TRUE(pcm.WaitForSamples(3));
    headset.Push(Int16Packet({-4, 5}));
    ASSERT_TRUE(pcm.WaitForSamples(5));
    EXPECT_EQ(pcm.Samples(), (Samples{1, 2, 3, -4, 5}));
}

// However the sources fall into rounds, each sample goes out once, alone or in a sum.
TEST_F(Capture, MixedModeDeliversEverySampleOfBothSourcesOnce) {
    ASSERT_TRUE(capture->StartMixed(TEXT(""), TEXT(""), Consumer()));
    for (int packet = 0; packet < 200; ++packet) {
        mic.Push(Int16Packet(Samples(160, 3)));
        speaker.Push(Int16Packet(Samples(160, 100)));
    }
    ASSERT_TRUE(mic.WaitUntilDrained());
    ASSERT_TRUE(speaker.WaitUntilDrained());
    const auto sum = [this] {
        int total = 0;
        for (const std::int16_t sample : pcm.Samples()) {
            total += sample;
        }
        return total;
    };
    while (sum() < 200 * 160 * 103 && pcm.WaitForSamples(pcm.Samples().size() + 1)) {
    }
    EXPECT_EQ(sum(), 200 * 160 * 103);
}

// The value of a sum is none that one source, or both one behind the other, could give.
constexpr std::int16_t kOfMic = 3;
constexpr std::int16_t kOfSpeaker = 100;
constexpr std::int16_t kOfBoth = 103;
constexpr int kPacketFrames = 160; // 10 ms

TEST_F(Capture, MixedModeAddsWhatTheSourcesDeliverAtTheSameTime) {
    constexpr int kPairs = 50;
    ASSERT_TRUE(capture->StartMixed(TEXT(""), TEXT(""), Consumer()));
    std::size_t delivered = 0;
    for (int pair = 0; pair < kPairs; ++pair) {
        speaker.Push(Int16Packet(Samples(kPacketFrames, kOfSpeaker)));
        mic.Push(Int16Packet(Samples(kPacketFrames, kOfMic)));
        ASSERT_TRUE(pcm.WaitForSamples(delivered + 1));
        ASSERT_TRUE(mic.WaitUntilDrained());
        ASSERT_TRUE(speaker.WaitUntilDrained());
        delivered = pcm.Samples().size();
    }
    const Samples all = pcm.Samples();
    EXPECT_GE(std::count(all.begin(), all.end(), kOfBoth), kPairs * kPacketFrames / 2)
        << "of " << all.size();
}

// Two devices of one system, each with a packet every 10 ms, one `phase` behind the other, and a
// millisecond of jitter.
class MixedPhases : public Capture {
protected:
    static constexpr int kPackets = 60;

    // Which part of the packets was added: 1 when only the very first and the very last were not,
    // which may have no partner.
    double PartAdded(std::chrono::milliseconds phase) {
        PcmCollector heard;
        const bool started = capture->StartMixed(
            TEXT(""), TEXT(""),
            [&](const std::uint8_t* data, std::uint32_t bytes) { heard.Take(data, bytes); });
        EXPECT_TRUE(started);
        Play(phase);
        EXPECT_TRUE(mic.WaitUntilDrained());
        EXPECT_TRUE(speaker.WaitUntilDrained());
        capture->Stop();
        const Samples all = heard.Samples();
        return static_cast<double>(std::count(all.begin(), all.end(), kOfBoth)) /
               ((kPackets - 1) * kPacketFrames);
    }

private:
    void Play(std::chrono::milliseconds phase) {
        using Clock = std::chrono::steady_clock;
        std::uniform_int_distribution<int> jitterUs(0, 1000);
        const auto jitter = [&] { return std::chrono::microseconds(jitterUs(random_)); };
        std::multimap<Clock::time_point, ScriptedEndpoint*> schedule;
        auto due = Clock::now() + std::chrono::milliseconds(20);
        for (int i = 0; i < kPackets; ++i, due += std::chrono::milliseconds(10)) {
            schedule.emplace(due + jitter(), &mic);
            schedule.emplace(due + phase + jitter(), &speaker);
        }
        for (const auto& [time, device] : schedule) {
            std::this_thread::sleep_until(time - std::chrono::milliseconds(1));
            while (Clock::now() < time) {
                std::this_thread::yield(); // sleeping is not exact enough everywhere
            }
            const bool isMic = device == &mic;
            device->Push(Int16Packet(Samples(kPacketFrames, isMic ? kOfMic : kOfSpeaker)));
        }
    }

    std::mt19937 random_{1};
};

struct LeastAdded {
    double atEveryPhase;
    double onAverage;
};
// Sanitizers slow every step down, and their tests run beside others: what is looked for there are
// races, and that nothing is merely appended.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr LeastAdded kLeastAdded{0.3, 0.5};
#else
constexpr LeastAdded kLeastAdded{0.85, 0.97};
#endif

TEST_F(MixedPhases, AreAddedWhateverTheyAre) {
    constexpr int kPhases = 10;
    double sum = 0;
    for (int phase = 0; phase < kPhases; ++phase) {
        // The middle one of three: a busy machine delays packets and rounds now and then.
        std::array<double, 3> parts{};
        for (double& part : parts) {
            part = PartAdded(std::chrono::milliseconds(phase));
        }
        std::sort(parts.begin(), parts.end());
        EXPECT_GE(parts[1], kLeastAdded.atEveryPhase) << phase << " ms apart";
        sum += parts[1];
    }
    EXPECT_GE(sum / kPhases, kLeastAdded.onAverage);
}

TEST_F(Capture, MixedModeStartsWholeOrNotAtAll) {
    const struct {
        ScriptedEndpoint& failing;
        const char* traced;
    } cases[] = {
        {mic, "[AUDIO] StartMixed: failed to open mic stream\n"},
        {speaker, "[AUDIO] StartMixed: failed to open loopback stream\n"},
    };
    for (const auto& [failing, traced] : cases) {
        failing.Fail("Initialize", static_cast<HRESULT>(0x88890008));
        auto held = std::make_shared<int>(0);
        const std::string trace = TraceOf([&] {
            EXPECT_FALSE(capture->StartMixed(TEXT(""), TEXT(""),
                                             [held](const std::uint8_t*, std::uint32_t) {}));
            EXPECT_EQ(held.use_count(), 1);
        });
        EXPECT_NE(trace.find(traced), std::string::npos) << trace;
        EXPECT_NE(trace.find("OpenStream Initialize FAILED hr=0x88890008 loopback="),
                  std::string::npos);
        EXPECT_EQ(mic.Running() + speaker.Running(), 0);
        EXPECT_EQ(ScriptedEndpoints::LiveObjects(), 0);
        failing.Fail("Initialize", S_OK);
    }
}

TEST_F(Capture, MixedModeGoesOnWithTheSourceThatIsLeft) {
    ASSERT_TRUE(capture->StartMixed(TEXT(""), TEXT(""), Consumer()));
    speaker.Fail("GetNextPacketSize", static_cast<HRESULT>(0x88890004));
    EXPECT_TRUE(WaitForSourceEnds(1));
    mic.Push(Int16Packet({1, 2, 3}));
    EXPECT_TRUE(pcm.WaitForSamples(3));
    ASSERT_TRUE(capture->StartLoopback(TEXT("headset"), Consumer()));
    EXPECT_EQ(mic.Running() + speaker.Running(), 0);
    headset.Push(Int16Packet({4}));
    EXPECT_TRUE(pcm.WaitForSamples(4));
}

} // namespace

// The sound interfaces against a real sound server: what is listed, what arrives, and what happens
// when something goes away.
#include "audio/packet_ring.h"
#include "audio_capture.h"
#include "com_ref.h"
#include "support/environment_setting.h"
#include "support/sound_player.h"
#include "support/sound_server.h"

#include <audioclient.h>
#include <ksmedia.h>
#include <mmdeviceapi.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <malloc.h>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

// ---- The scene --------------------------------------------------------------------------------

// No test ever speaks to the sound server of whoever runs it: there is none but the test's own.
const EnvironmentSetting kNoServer("PULSE_SERVER", "unix:/nonexistent/socket");

constexpr REFERENCE_TIME kOneSecond = 10'000'000;
constexpr seconds kPatience{10}; // for what must come, however busy the machine is

struct CloseEvent {
    void operator()(void* event) const { CloseHandle(event); }
};
using Event = std::unique_ptr<void, CloseEvent>;

ComRef<IMMDeviceEnumerator> MakeEnumerator() {
    ComRef<IMMDeviceEnumerator> enumerator;
    EXPECT_EQ(CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                               __uuidof(IMMDeviceEnumerator), enumerator.ReceiveVoid()),
              S_OK);
    return enumerator;
}

// An endpoint's client and its mix format; neither when there is no such endpoint.
struct Client {
    explicit Client(const std::u16string& id) {
        ComRef<IMMDevice> device;
        if (SUCCEEDED(MakeEnumerator()->GetDevice(id.c_str(), device.Receive())) &&
            SUCCEEDED(device->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr,
                                       client.ReceiveVoid()))) {
            client->GetMixFormat(format.Receive());
        }
    }
    HRESULT Initialize(DWORD flags, REFERENCE_TIME buffer = kOneSecond) {
        return client->Initialize(AUDCLNT_SHAREMODE_SHARED, flags, buffer, 0, format.get(),
                                  nullptr);
    }

    ComRef<IAudioClient> client;
    CoTaskMemory<WAVEFORMATEX> format;
};

// (id, name) of every endpoint in order.
using Rows = std::vector<std::pair<std::u16string, std::u16string>>;
Rows Listed(EDataFlow flow) {
    Rows rows;
    for (const AudioDeviceInfo& device : AudioCapture::EnumerateDevices(flow)) {
        rows.emplace_back(device.id, device.name);
    }
    return rows;
}

// The default's id, or the result in place of it.
std::pair<HRESULT, std::u16string> DefaultOf(EDataFlow flow) {
    ComRef<IMMDevice> device;
    CoTaskMemory<WCHAR> id;
    const HRESULT hr = MakeEnumerator()->GetDefaultAudioEndpoint(flow, eConsole, device.Receive());
    if (device) {
        device->GetId(id.Receive());
    }
    return {hr, id ? id.get() : std::u16string()};
}

// A stream as the program opens it: a microphone has an event, loopback is polled.
struct Capture : Client {
    explicit Capture(const std::u16string& id, REFERENCE_TIME buffer = kOneSecond) : Client(id) {
        const bool loopback = id.starts_with(u"render:");
        const DWORD flags =
            loopback ? AUDCLNT_STREAMFLAGS_LOOPBACK : AUDCLNT_STREAMFLAGS_EVENTCALLBACK;
        if (!client || FAILED(Initialize(flags, buffer))) {
            return;
        }
        if (!loopback) {
            event.reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
            client->SetEventHandle(event.get());
        }
        if (SUCCEEDED(client->GetService(__uuidof(IAudioCaptureClient), packets.ReceiveVoid()))) {
            hasStarted = client->Start() == S_OK;
        }
    }

    ~Capture() { // the stream signals the event for as long as it lives
        packets.Reset();
        client.Reset();
    }
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    // What a reader does between two looks; false when a sleeping one was not woken.
    bool WaitForNews() const {
        if (event != nullptr) {
            return WaitForSingleObject(event.get(), 5000) == WAIT_OBJECT_0;
        }
        Sleep(1);
        return true;
    }
    // Waits for a packet; false when the stream has failed or nothing comes.
    bool WaitForPacket() const {
        const auto end = Clock::now() + kPatience;
        UINT32 frames = 0;
        while (SUCCEEDED(packets->GetNextPacketSize(&frames)) && frames == 0 &&
               Clock::now() < end) {
            WaitForNews();
        }
        return frames > 0;
    }

    Event event;
    ComRef<IAudioCaptureClient> packets;
    bool hasStarted = false;
};

struct Packet {
    std::vector<float> samples;
    DWORD flags = 0;
};

// The next packet, waited for; without samples when none comes.
Packet ReadPacket(const Capture& capture, unsigned channels) {
    BYTE* data = nullptr;
    UINT32 frames = 0;
    Packet packet;
    if (!capture.WaitForPacket() ||
        capture.packets->GetBuffer(&data, &frames, &packet.flags, nullptr, nullptr) != S_OK) {
        return {};
    }
    packet.samples.resize(std::size_t{frames} * channels);
    std::memcpy(packet.samples.data(), data, packet.samples.size() * sizeof(float));
    capture.packets->ReleaseBuffer(frames);
    return packet;
}

bool IsAllZero(const std::vector<float>& samples) {
    return std::all_of(samples.begin(), samples.end(), [](float sample) { return sample == 0; });
}

milliseconds Took(const std::function<void()>& act) {
    const auto begin = Clock::now();
    act();
    return std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
}

// ---- Endpoints --------------------------------------------------------------------------------

TEST(AudioEndpoints, WithoutServerEverythingFailsAtOnce) {
    const auto took = Took([] {
        ComRef<IMMDeviceCollection> collection;
        ComRef<IMMDevice> device;
        EXPECT_EQ(MakeEnumerator()->EnumAudioEndpoints(eRender, DEVICE_STATE_ACTIVE,
                                                       collection.Receive()),
                  AUDCLNT_E_SERVICE_NOT_RUNNING);
        EXPECT_EQ(DefaultOf(eCapture).first, AUDCLNT_E_SERVICE_NOT_RUNNING);
        EXPECT_EQ(MakeEnumerator()->GetDevice(u"render:sink", device.Receive()),
                  AUDCLNT_E_SERVICE_NOT_RUNNING);
    });
    EXPECT_LT(took, seconds(2));
}

TEST(AudioEndpoints, MonitorsAreNeverMicrophonesNotEvenByDefault) {
    SoundServer server;
    EXPECT_TRUE(Listed(eRender).empty());
    EXPECT_TRUE(Listed(eCapture).empty());
    EXPECT_EQ(DefaultOf(eRender).first, E_NOTFOUND);
    EXPECT_EQ(DefaultOf(eCapture).first, E_NOTFOUND);

    server.AddSink("speaker", 48000, 2);
    EXPECT_EQ(DefaultOf(eRender).second, u"render:speaker");
    EXPECT_TRUE(Listed(eCapture).empty());
    EXPECT_EQ(DefaultOf(eCapture).first, E_NOTFOUND); // the server's own is the monitor

    server.AddMicrophone("first", 48000, 2);
    server.AddMicrophone("second", 48000, 2);
    server.SetDefaultSource("speaker.monitor");
    EXPECT_EQ(DefaultOf(eCapture).second, u"capture:first");
    server.SetDefaultSource("second");
    EXPECT_EQ(DefaultOf(eCapture).second, u"capture:second");
    server.SetDefaultSink("second_speaker");
    EXPECT_EQ(DefaultOf(eRender).second, u"render:second_speaker");
}

TEST(AudioEndpoints, ListKeepsTheServersOrderAndNothingButItsIdsIsADevice) {
    SoundServer server;
    server.AddSink("zulu", 48000, 2, "Højttaler 扬声器 🎧");
    server.AddSink("alpha", 48000, 2, "the sink");
    server.LoadModule("module-null-source", "source_name=mike description=source");
    EXPECT_EQ(Listed(eRender),
              (Rows{{u"render:zulu", u"Højttaler 扬声器 🎧"}, {u"render:alpha", u"the sink"}}));
    EXPECT_EQ(Listed(eCapture), (Rows{{u"capture:mike", u"source"}}));
    EXPECT_TRUE(Client(u"render:alpha").client && Client(u"capture:mike").client);
    // Names that the server would understand but that are no ids of ours, monitors among them.
    for (const char16_t* id :
         {u"", u"alpha", u"render:", u"render:0", u"render:mike", u"render:alpha.monitor",
          u"render:@DEFAULT_SINK@", u"capture:alpha", u"capture:alpha.monitor",
          u"capture:@DEFAULT_SOURCE@", u"RENDER:alpha", u"capture:\xD800"}) {
        ComRef<IMMDevice> device;
        EXPECT_EQ(MakeEnumerator()->GetDevice(id, device.Receive()), E_NOTFOUND);
    }
}

// ---- What arrives -----------------------------------------------------------------------------

struct Route {
    bool microphone;
    std::uint32_t sampleRate;
    unsigned channels;
    const char* sampleFormat; // the device's
    UINT32 packetFrames;
};

class AudioRoute : public testing::TestWithParam<Route> {};

TEST_P(AudioRoute, SoundArrivesCompleteAndToTheLastBitWithSilenceFlagged) {
    const auto [microphone, sampleRate, channels, sampleFormat, packetFrames] = GetParam();
    SoundServer server;
    if (microphone) {
        server.AddMicrophone("mic", sampleRate, channels);
    } else {
        server.AddSink("sink", sampleRate, channels, {}, sampleFormat);
    }
    const Capture capture(microphone ? u"capture:mic" : u"render:sink");
    ASSERT_TRUE(capture.hasStarted);
    const auto& format = *reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(capture.format.get());
    EXPECT_EQ(format.Format.nSamplesPerSec, sampleRate);
    EXPECT_EQ(format.Format.nChannels, channels);
    EXPECT_EQ(format.Format.nBlockAlign, channels * 4);
    EXPECT_TRUE(format.SubFormat == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT);

    // No zeros, so that a gap shows, and 16-bit values, so that every device can carry them.
    std::vector<float> played(std::size_t{sampleRate} / 2 * channels);
    for (std::size_t i = 0; i < played.size(); ++i) {
        const auto size = static_cast<int>(i * 7919 % 32749) + 1;
        played[i] = static_cast<float>(i % 3 == 0 ? -size : size) / 32768.0F;
    }
    ASSERT_TRUE(capture.WaitForPacket());
    SoundPlayer player(microphone ? "mic_speaker" : "sink", sampleRate, channels, 400);
    player.Play(played);
    std::vector<float> heard;
    int silentBefore = 0;
    int silentAfter = 0;
    for (bool soundBegan = false; silentAfter < 3;) {
        const Packet packet = ReadPacket(capture, channels);
        ASSERT_EQ(packet.samples.size(), std::size_t{packetFrames} * channels);
        const bool silent = (packet.flags & AUDCLNT_BUFFERFLAGS_SILENT) != 0;
        ASSERT_EQ(silent, IsAllZero(packet.samples));
        ASSERT_EQ(packet.flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY, 0U);
        soundBegan = soundBegan || !silent;
        (soundBegan ? silentAfter : silentBefore) += silent ? 1 : 0;
        heard.insert(heard.end(), packet.samples.begin(), packet.samples.end());
    }
    EXPECT_GT(silentBefore, 0);
    const auto begin =
        std::find_if(heard.begin(), heard.end(), [](float sample) { return sample != 0; });
    ASSERT_GE(static_cast<std::size_t>(heard.end() - begin), played.size());
    EXPECT_EQ((begin - heard.begin()) % channels, 0);
    const auto end = begin + static_cast<std::ptrdiff_t>(played.size());
    const auto wrong = std::mismatch(played.begin(), played.end(), begin).first;
    EXPECT_EQ(wrong, played.end()) << "from sample " << wrong - played.begin();
    EXPECT_TRUE(IsAllZero(std::vector<float>(end, heard.end())));
}

INSTANTIATE_TEST_SUITE_P(Formats, AudioRoute,
                         testing::Values(Route{false, 44100, 1, "float32le", 441},
                                         Route{false, 96000, 6, "float32le", 960},
                                         Route{false, 48000, 2, "s16le", 480},
                                         Route{false, 11025, 2, "float32le", 110}, // 110.25 frames
                                         Route{true, 48000, 2, "float32le", 480},
                                         Route{true, 16000, 1, "float32le", 160}),
                         [](const auto& route) {
                             return (route.param.microphone ? "Microphone" : "Loopback") +
                                    std::to_string(route.param.sampleRate);
                         });

// What a reader finds each time it is woken.
struct Burst {
    int packets = 0;
    int withSound = 0;
};

Burst ReadBurst(const Capture& capture) {
    Burst burst;
    for (UINT32 frames = capture.WaitForPacket() ? 1 : 0; frames > 0; ++burst.packets) {
        const Packet packet = ReadPacket(capture, 2);
        burst.withSound += (packet.flags & AUDCLNT_BUFFERFLAGS_SILENT) == 0 ? 1 : 0;
        capture.packets->GetNextPacketSize(&frames);
    }
    return burst;
}

int MedianPackets(std::vector<Burst> bursts) {
    const auto middle = bursts.begin() + static_cast<std::ptrdiff_t>(bursts.size() / 2);
    std::nth_element(bursts.begin(), middle, bursts.end(),
                     [](const Burst& one, const Burst& two) { return one.packets < two.packets; });
    return middle->packets;
}

// The device idles: nobody but the capture asks for a short way. How late sound comes is measured
// where the whole program is.
TEST(AudioStream, SilenceGathersForOneWakeUpAndSoundDoesNot) {
    SoundServer server;
    server.AddSink("sink", 48000, 2);
    server.AddMicrophone("mic", 48000, 2);
    const std::vector<float> tone(96'000, 0.5F); // one second
    for (const bool microphone : {false, true}) {
        const Capture capture(microphone ? u"capture:mic" : u"render:sink");
        ASSERT_TRUE(capture.hasStarted);
        std::vector<Burst> silence;
        while (silence.size() < 20) {
            silence.push_back(ReadBurst(capture));
            ASSERT_GT(silence.back().packets, 0);
        }
        EXPECT_GE(MedianPackets(silence), 5);
        EXPECT_LE(MedianPackets(silence), 8);

        SoundPlayer player(microphone ? "mic_speaker" : "sink", 48000, 2, 400);
        player.Play(tone);
        Burst burst;
        while (burst.withSound == 0) {
            burst = ReadBurst(capture); // the last of the silence is in it
            ASSERT_GT(burst.packets, 0);
        }
        EXPECT_LE(burst.withSound, 4);
        std::vector<Burst> sound;
        while (sound.size() < 10) {
            sound.push_back(ReadBurst(capture));
            ASSERT_GT(sound.back().withSound, 0);
        }
        EXPECT_LE(MedianPackets(sound), 4);
    }
}

TEST(AudioStream, SilenceReachesAReaderWhoseBufferIsTooShortToGatherIt) {
    SoundServer server;
    server.AddMicrophone("mic", 48000, 2);
    const Capture capture(u"capture:mic", kOneSecond / 20);
    ASSERT_TRUE(capture.hasStarted);
    EXPECT_TRUE(capture.WaitForNews());
}

TEST(AudioStream, StopHandsOnTheSilenceThatHasGathered) {
    SoundServer server;
    server.AddMicrophone("mic", 48000, 2);
    const Capture capture(u"capture:mic");
    ASSERT_TRUE(capture.hasStarted);
    const auto end = Clock::now() + kPatience;
    for (UINT32 frames = 0; frames == 0; std::this_thread::yield()) {
        ASSERT_EQ(capture.packets->GetNextPacketSize(&frames), S_OK);
        ASSERT_LT(Clock::now(), end);
    }
    ResetEvent(capture.event.get());
    EXPECT_EQ(capture.client->Stop(), S_OK);
    EXPECT_EQ(WaitForSingleObject(capture.event.get(), 0), WAIT_OBJECT_0);
}

// ---- What goes away ---------------------------------------------------------------------------

class AudioLoss : public testing::TestWithParam<std::tuple<bool, bool>> {};

TEST_P(AudioLoss, StreamFailsAtOnceAndEndsWithoutHanging) {
    const auto [microphone, wholeServer] = GetParam();
    SoundServer server;
    server.AddSink("other", 48000, 2); // a stream must not be saved by moving it here
    const SoundServer::Module device =
        microphone ? server.AddMicrophone("mic", 48000, 2) : server.AddSink("sink", 48000, 2);
    auto capture = std::make_unique<Capture>(microphone ? u"capture:mic" : u"render:sink");
    ASSERT_TRUE(capture->hasStarted && capture->WaitForPacket());
    BYTE* data = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0;
    ASSERT_EQ(capture->packets->GetBuffer(&data, &frames, &flags, nullptr, nullptr), S_OK);

    if (wholeServer) {
        server.Kill();
    } else {
        server.UnloadModule(device);
    }
    const auto end = Clock::now() + kPatience;
    UINT32 next = 0;
    while (SUCCEEDED(capture->packets->GetNextPacketSize(&next)) && Clock::now() < end) {
        // A reader sleeps here without a limit if the event is not set at the end.
        ASSERT_TRUE(capture->WaitForNews());
    }
    EXPECT_EQ(capture->packets->GetNextPacketSize(&next), AUDCLNT_E_DEVICE_INVALIDATED);
    EXPECT_TRUE(IsAllZero({reinterpret_cast<float*>(data), reinterpret_cast<float*>(data) + 960}));
    EXPECT_EQ(capture->packets->ReleaseBuffer(frames), AUDCLNT_E_DEVICE_INVALIDATED);
    EXPECT_EQ(capture->packets->GetBuffer(&data, &frames, &flags, nullptr, nullptr),
              AUDCLNT_E_DEVICE_INVALIDATED);
    const auto took = Took([&capture] {
        EXPECT_EQ(capture->client->Stop(), S_OK);
        EXPECT_EQ(capture->client->Start(), AUDCLNT_E_DEVICE_INVALIDATED);
        capture.reset();
    });
    EXPECT_LT(took, seconds(2));
    EXPECT_EQ(DefaultOf(eRender).first, wholeServer ? AUDCLNT_E_SERVICE_NOT_RUNNING : S_OK);
}

INSTANTIATE_TEST_SUITE_P(OfDeviceOrServer, AudioLoss,
                         testing::Combine(testing::Bool(), testing::Bool()));

TEST(AudioLossBeforeUse, DeviceThatWentSinceItWasListedIsRefusedAtInitialize) {
    SoundServer server;
    const SoundServer::Module sink = server.AddSink("sink", 48000, 2);
    Client client(u"render:sink");
    ASSERT_TRUE(client.client);
    server.UnloadModule(sink);
    EXPECT_EQ(client.Initialize(AUDCLNT_STREAMFLAGS_LOOPBACK), AUDCLNT_E_DEVICE_INVALIDATED);
}

TEST(AudioLossBeforeUse, ServerThatDoesNotAnswerHoldsNobodyUpForLong) {
    SoundServer server;
    server.AddSink("sink", 48000, 2);
    auto capture = std::make_unique<Capture>(u"render:sink");
    ASSERT_TRUE(capture->hasStarted);
    server.Freeze();
    auto newcomer = std::async(std::launch::async, [] { return DefaultOf(eRender).first; });
    const auto stopping = Took([&capture] { EXPECT_EQ(capture->client->Stop(), S_OK); });
    EXPECT_LT(stopping, seconds(6));
    EXPECT_EQ(newcomer.get(), AUDCLNT_E_SERVICE_NOT_RUNNING);
    const auto afterwards = Took([&capture] {
        EXPECT_EQ(capture->client->Start(), AUDCLNT_E_DEVICE_INVALIDATED);
        capture.reset();
    });
    EXPECT_LT(afterwards, seconds(1));
    server.Resume();
}

// ---- What stays behind ------------------------------------------------------------------------

std::ptrdiff_t EntriesOf(const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

TEST(AudioResources, TwoHundredStreamsLeaveNothingBehind) {
    SoundServer server;
    server.AddSink("sink", 48000, 2);
    server.AddMicrophone("mic", 48000, 2);
    const auto openAndClose = [](int times) {
        for (int i = 0; i < times; ++i) {
            const Capture capture(i % 2 == 0 ? u"render:sink" : u"capture:mic");
            ASSERT_TRUE(capture.hasStarted);
            if (i % 4 < 2) {
                capture.client->Stop();
            }
        }
    };
    openAndClose(20); // what the libraries keep for good
    const auto threads = EntriesOf("/proc/self/task");
    const auto files = EntriesOf("/proc/self/fd");
    const auto memory = mallinfo2().uordblks; // always 0 under a sanitizer, which has its own count
    openAndClose(200);
    // A thread that has been joined may stand in the list a moment longer.
    for (int i = 0; i < 1000 && EntriesOf("/proc/self/task") > threads; ++i) {
        std::this_thread::yield();
    }
    EXPECT_LE(EntriesOf("/proc/self/task"), threads);
    EXPECT_LE(EntriesOf("/proc/self/fd"), files);
    EXPECT_LE(mallinfo2().uordblks, memory + 16'384); // under 100 bytes a stream
}

// ---- The ring ---------------------------------------------------------------------------------

using audio::HeldPacket;
using audio::PacketRing;

std::vector<float> Filled(std::size_t count, float value) {
    return std::vector<float>(count, value);
}

TEST(PacketRingUse, FragmentsOfAnyLengthBecomeTheSamePackets) {
    for (const std::size_t fragment : {1U, 3U, 10U, 17U, 64U}) {
        PacketRing ring(10, 20);
        std::vector<float> samples(128);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            samples[i] = static_cast<float>(i + 1);
        }
        for (std::size_t at = 0; at < samples.size(); at += fragment) {
            ring.Write(&samples[at], std::min(fragment, samples.size() - at));
        }
        HeldPacket packet{};
        for (std::size_t expected = 0; expected < 120; expected += 10) {
            ASSERT_TRUE(ring.Hold(packet));
            EXPECT_TRUE(std::equal(packet.samples, packet.samples + 10, &samples[expected]));
            ring.Release();
        }
        EXPECT_FALSE(ring.Hold(packet));
    }
}

TEST(PacketRingUse, SilenceIsEveryBitZeroButTheSign) {
    const struct {
        std::vector<float> samples; // none: a hole
        bool silent;
    } cases[] = {
        {{}, true},
        {{0.0F, -0.0F, -0.0F, 0.0F}, true},
        {{0.0F, 0.0F, 0.0F, std::numeric_limits<float>::denorm_min()}, false},
        {{std::numeric_limits<float>::quiet_NaN(), 0.0F, 0.0F, 0.0F}, false},
    };
    PacketRing ring(4, 8);
    for (const auto& [samples, silent] : cases) {
        // Whatever was in the slot before must not be heard in a hole.
        EXPECT_TRUE(ring.Write(samples.empty() ? nullptr : samples.data(), 4));
        HeldPacket packet{};
        ASSERT_TRUE(ring.Hold(packet));
        EXPECT_EQ(packet.silent, silent);
        ring.Release();
    }
}

// A fragment of the server brings several packets, and its last one may be silent already.
TEST(PacketRingUse, SoundAnywhereInAFragmentIsMarkedOnce) {
    PacketRing ring(2, 10);
    const float fragment[] = {0.0F, 0.5F, 0.0F, 0.0F, 0.0F, 0.0F};
    ring.Write(fragment, 6);
    EXPECT_TRUE(ring.TakeSoundMark());
    ring.Write(nullptr, 6);
    EXPECT_FALSE(ring.TakeSoundMark());
}

TEST(PacketRingUse, HeldPacketStaysAsItIsWhileTheRingRunsOver) {
    PacketRing ring(4, 3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(ring.Write(Filled(4, static_cast<float>(i)).data(), 4));
    }
    HeldPacket packet{};
    ASSERT_TRUE(ring.Hold(packet));
    for (int i = 3; i < 50; ++i) {
        EXPECT_FALSE(ring.Write(Filled(4, static_cast<float>(i)).data(), 4));
    }
    EXPECT_EQ(std::vector<float>(packet.samples, packet.samples + 4), Filled(4, 0));
    ring.Release();
    EXPECT_TRUE(ring.Write(Filled(4, 50).data(), 4));
    const std::pair<float, bool> expected[] = {{1.0F, false}, {2.0F, false}, {50.0F, true}};
    for (const auto& [value, discontinuous] : expected) {
        ASSERT_TRUE(ring.Hold(packet));
        EXPECT_EQ(packet.samples[0], value);
        EXPECT_EQ(packet.discontinuous, discontinuous);
        ring.PutBack();
        ASSERT_TRUE(ring.Hold(packet));
        EXPECT_EQ(packet.samples[0], value);
        ring.Release();
    }
    EXPECT_FALSE(ring.HasPacket());
}

TEST(PacketRingUse, ReaderAndWriterAtFullSpeedNeverShareASlot) {
    constexpr std::size_t kSamples = 32;
    constexpr int kExactFloats = 1 << 24; // as far as a float can count
    constexpr int kEnough = 1'000;
    const auto end = Clock::now() + milliseconds(300);
    PacketRing ring(kSamples, 3);
    std::atomic<int> read{0};
    std::atomic<bool> written{false};
    std::thread writer([&ring, &read, &written, end] {
        std::vector<float> samples(kSamples);
        for (int i = 0; i < kExactFloats && (read < kEnough || Clock::now() < end); ++i) {
            std::fill(samples.begin(), samples.end(), static_cast<float>(i));
            ring.Write(samples.data(), samples.size());
            if (i % 5 == 0) {
                std::this_thread::yield(); // a reader that is overrun all the time reads nothing
            }
        }
        written = true;
    });
    float last = -1;
    int torn = 0;
    int misflagged = 0;
    int disordered = 0;
    HeldPacket packet{};
    while (!written || ring.HasPacket()) {
        if (!ring.Hold(packet)) {
            continue;
        }
        const float value = packet.samples[0];
        const auto isTheSame = [value](float sample) { return sample == value; };
        torn += std::all_of(packet.samples, packet.samples + kSamples, isTheSame) ? 0 : 1;
        disordered += value > last ? 0 : 1;
        misflagged += packet.discontinuous == (value != last + 1) ? 0 : 1;
        last = value;
        ring.Release();
        ++read;
    }
    writer.join();
    EXPECT_GE(read, kEnough);
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(disordered, 0);
    EXPECT_EQ(misflagged, 0);
}

} // namespace

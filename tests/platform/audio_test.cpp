// The sound interfaces against a real sound server: what is listed, what arrives, and what happens
// when something goes away.
#include "audio/lockstep.h"
#include "audio/packet_ring.h"
#include "audio_capture.h"
#include "owner.h"
#include "support/environment_setting.h"
#include "support/sound_player.h"
#include "support/sound_server.h"

#include <audioclient.h>
#include <gtest/gtest.h>
#include <ksmedia.h>
#include <malloc.h>
#include <mmdeviceapi.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <iterator>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

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

// The id of the device that is the default now: the one behind the row that follows it.
std::u16string DefaultNow(EDataFlow flow) {
    const Rows rows = Listed(flow);
    return rows.size() < 2 ? std::u16string() : rows[1].first;
}

HRESULT FindDefault(EDataFlow flow) {
    ComRef<IMMDevice> device;
    return MakeEnumerator()->GetDefaultAudioEndpoint(flow, eConsole, device.Receive());
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

bool Eventually(const std::function<bool()>& condition) {
    const auto end = Clock::now() + kPatience;
    while (!condition() && Clock::now() < end) {
        std::this_thread::yield();
    }
    return condition();
}

milliseconds Took(const std::function<void()>& act) {
    const auto begin = Clock::now();
    act();
    return std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
}

// Tests that hold on either server.
class OnEachServer : public testing::TestWithParam<SoundServer::Kind> {
protected:
    SoundServer server{GetParam()};
};
std::string NameOf(SoundServer::Kind kind) {
    return kind == SoundServer::Kind::PipeWire ? "PipeWire" : "PulseAudio";
}
constexpr SoundServer::Kind kServers[] = {SoundServer::Kind::PulseAudio,
                                          SoundServer::Kind::PipeWire};

// ---- Endpoints --------------------------------------------------------------------------------

TEST(AudioEndpoints, WithoutServerEverythingFailsAtOnce) {
    const auto took = Took([] {
        ComRef<IMMDeviceCollection> collection;
        ComRef<IMMDevice> device;
        EXPECT_EQ(MakeEnumerator()->EnumAudioEndpoints(eRender, DEVICE_STATE_ACTIVE,
                                                       collection.Receive()),
                  AUDCLNT_E_SERVICE_NOT_RUNNING);
        EXPECT_EQ(FindDefault(eCapture), AUDCLNT_E_SERVICE_NOT_RUNNING);
        EXPECT_EQ(MakeEnumerator()->GetDevice(u"render:sink", device.Receive()),
                  AUDCLNT_E_SERVICE_NOT_RUNNING);
    });
    EXPECT_LT(took, seconds(2));
}

TEST_P(OnEachServer, MonitorsAndStandInsAreNeverOfferedNotEvenByDefault) {
    if (GetParam() == SoundServer::Kind::PulseAudio) {
        server.LoadModule("module-always-sink", ""); // PipeWire has such a sink by itself
    }
    ASSERT_TRUE(Eventually([this] { return server.HasSink("auto_null"); }));
    EXPECT_TRUE(Listed(eRender).empty());
    EXPECT_TRUE(Listed(eCapture).empty());
    EXPECT_EQ(FindDefault(eRender), E_NOTFOUND);
    EXPECT_EQ(FindDefault(eCapture), E_NOTFOUND);

    // PipeWire takes its time to settle a default, and may pass over a wish that comes meanwhile.
    const auto becomesDefault = [](EDataFlow flow, const char16_t* id,
                                   const std::function<void()>& wish) {
        return Eventually([&] {
            wish();
            return DefaultNow(flow) == id;
        });
    };
    server.AddSink("speaker", 48000, 2);
    EXPECT_TRUE(becomesDefault(eRender, u"render:speaker", [] {}));
    EXPECT_TRUE(Listed(eCapture).empty());
    EXPECT_EQ(FindDefault(eCapture), E_NOTFOUND); // the server's own is the monitor

    server.AddMicrophone("first", 48000, 2);
    server.AddMicrophone("second", 48000, 2);
    EXPECT_TRUE(becomesDefault(eCapture, u"capture:first",
                               [this] { server.SetDefaultSource("speaker.monitor"); }));
    EXPECT_TRUE(
        becomesDefault(eCapture, u"capture:second", [this] { server.SetDefaultSource("second"); }));
    EXPECT_TRUE(becomesDefault(eRender, u"render:second_speaker",
                               [this] { server.SetDefaultSink("second_speaker"); }));
}

TEST_P(OnEachServer, ListBeginsWithTheDefaultAndNothingButItsIdsIsADevice) {
    server.AddSink("zulu", 48000, 2, "Højttaler 扬声器 🎧");
    server.AddSink("alpha", 48000, 2, "USB Audio");
    server.AddSink("beta", 48000, 2, "USB Audio");
    server.AddSink("aardvark", 48000, 2, "Default");
    ASSERT_TRUE(Eventually([this] {
        server.SetDefaultSink("beta");
        return DefaultNow(eRender) == u"render:beta";
    }));
    EXPECT_EQ(Listed(eRender), (Rows{{u"render:@default", u"Default"},
                                     {u"render:beta", u"2- USB Audio"},
                                     {u"render:zulu", u"Højttaler 扬声器 🎧"},
                                     {u"render:alpha", u"USB Audio"},
                                     {u"render:aardvark", u"2- Default"}}));
    EXPECT_TRUE(Client(u"render:alpha").client && Client(u"render:@default").client);
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

// ---- The default ------------------------------------------------------------------------------

// Whether sound of about this size is heard before long.
bool Hears(const Capture& capture, float size) {
    const auto end = Clock::now() + kPatience;
    while (Clock::now() < end) {
        const Packet packet = ReadPacket(capture, 2);
        if (!packet.samples.empty() && std::abs(packet.samples[0] - size) < 0.01F) {
            return true;
        }
    }
    return false;
}

TEST_P(OnEachServer, StreamOnTheDefaultMovesAlongAndOneByNameStays) {
    server.AddSink("screen", 44100, 2);
    const auto headset = server.AddSink("headset", 48000, 2);
    server.SetDefaultSink("headset");
    SoundPlayer onScreen("screen", 44100, 2, 100);
    SoundPlayer onHeadset("headset", 48000, 2, 100);
    onScreen.Play(std::vector<float>(44100 * 2 * 60, 0.25F));
    onHeadset.Play(std::vector<float>(48000 * 2 * 60, 0.5F));

    const Capture following(u"render:@default");
    const Capture named(u"render:headset");
    ASSERT_TRUE(following.hasStarted && named.hasStarted);
    EXPECT_TRUE(Hears(following, 0.5F));
    server.SetDefaultSink("screen");
    EXPECT_TRUE(Hears(following, 0.25F));
    EXPECT_TRUE(Hears(named, 0.5F));
    server.SetDefaultSink("headset");
    EXPECT_TRUE(Hears(following, 0.5F));
    server.UnloadModule(headset);
    EXPECT_TRUE(Hears(following, 0.25F));
    UINT32 next = 0;
    EXPECT_TRUE(Eventually(
        [&] { return named.packets->GetNextPacketSize(&next) == AUDCLNT_E_DEVICE_INVALIDATED; }));
    EXPECT_EQ(following.packets->GetNextPacketSize(&next), S_OK);
}

// ---- Two at once ------------------------------------------------------------------------------

TEST_P(OnEachServer, TwoSoundingStreamsHandOnTheSameNumberAtATime) {
    server.AddSink("sink", 48000, 2);
    server.AddMicrophone("mic", 44100, 1);
    SoundPlayer film("sink", 48000, 2, 100);
    SoundPlayer voice("mic_speaker", 44100, 1, 100);
    film.Play(std::vector<float>(48000 * 2 * 60, 0.25F));
    voice.Play(std::vector<float>(44100 * 60, 0.5F));
    const Capture loopback(u"render:sink");
    const Capture microphone(u"capture:mic");
    ASSERT_TRUE(loopback.hasStarted && microphone.hasStarted);
    const auto drain = [](const Capture& capture, unsigned channels, int& sounding) {
        int packets = 0;
        UINT32 frames = 0;
        while (capture.packets->GetNextPacketSize(&frames) == S_OK && frames > 0) {
            const Packet packet = ReadPacket(capture, channels);
            sounding += IsAllZero(packet.samples) ? 0 : 1;
            ++packets;
        }
        return packets;
    };
    int heardBoth = 0;
    int rounds = 0;
    int equal = 0;
    while (rounds < 60) {
        ASSERT_EQ(WaitForSingleObject(microphone.event.get(), 5000), WAIT_OBJECT_0);
        int soundA = 0;
        int soundB = 0;
        const int mine = drain(microphone, 1, soundA);
        const int theirs = drain(loopback, 2, soundB);
        heardBoth += soundA > 0 && soundB > 0 ? 1 : 0;
        if (heardBoth > 10) { // both stand
            ++rounds;
            equal += mine == theirs ? 1 : 0;
        }
    }
    EXPECT_GE(equal, 57) << "of 60";
}

INSTANTIATE_TEST_SUITE_P(Servers, OnEachServer, testing::ValuesIn(kServers),
                         [](const auto& server) { return NameOf(server.param); });

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
    EXPECT_EQ(FindDefault(eRender), wholeServer ? AUDCLNT_E_SERVICE_NOT_RUNNING : S_OK);
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

// What the user notices: lists at once, an end of a run without a hang, one wait of three seconds
// for everything that has to be opened.
TEST_P(OnEachServer, ServerThatDoesNotAnswerIsWaitedForOnce) {
    server.AddSink("sink", 48000, 2, "Speaker");
    auto capture = std::make_unique<Capture>(u"render:sink");
    ASSERT_TRUE(capture->hasStarted);
    ASSERT_EQ(Listed(eRender).size(), 2U);
    server.Freeze();
    const auto listing = Took([] {
        EXPECT_EQ(Listed(eRender).size(), 2U) << "what is known is lost";
        EXPECT_EQ(Listed(eCapture).size(), 0U);
    });
    EXPECT_LT(listing, milliseconds(300));
    const auto opening = Took([] {
        EXPECT_FALSE(Capture(u"render:sink").hasStarted);
        EXPECT_FALSE(Capture(u"render:@default").hasStarted);
    });
    EXPECT_LT(opening, milliseconds(3300));
    UINT32 next = 0;
    EXPECT_TRUE(Eventually([&] { // the run hears that its source has gone
        return capture->packets->GetNextPacketSize(&next) == AUDCLNT_E_DEVICE_INVALIDATED;
    }));
    EXPECT_LT(Took([&capture] { capture.reset(); }), milliseconds(100));
    server.Resume();
    EXPECT_TRUE(Eventually([] { return Capture(u"render:sink").hasStarted; }));
}

TEST(AudioLossBeforeUse, ServerThatNeverAnsweredDelaysNoWindow) {
    SoundServer server;
    server.Freeze();
    EXPECT_LT(Took([] {
                  EXPECT_TRUE(Listed(eCapture).empty());
                  EXPECT_TRUE(Listed(eRender).empty());
              }),
              milliseconds(300));
    server.Resume();
    server.AddSink("sink", 48000, 2);
    EXPECT_TRUE(Eventually([] { return !Listed(eRender).empty(); }));
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
using audio::Lockstep;
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
            ring.HandOn(ring.Pending());
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
        EXPECT_EQ(ring.Write(samples.empty() ? nullptr : samples.data(), 4), 1U);
        ring.HandOn(1);
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
    const auto write = [&ring](int value) {
        ring.Write(Filled(4, static_cast<float>(value)).data(), 4);
        ring.HandOn(1);
    };
    for (int i = 0; i < 3; ++i) {
        write(i);
    }
    HeldPacket packet{};
    ASSERT_TRUE(ring.Hold(packet));
    for (int i = 3; i < 50; ++i) {
        write(i);
    }
    EXPECT_EQ(std::vector<float>(packet.samples, packet.samples + 4), Filled(4, 0));
    ring.Release();
    write(50);
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
            ring.HandOn(i % 7 == 0 ? 0 : 2); // some wait and are handed on with the next
            if (i % 5 == 0) {
                std::this_thread::yield(); // a reader that is overrun all the time reads nothing
            }
        }
        ring.HandOn(ring.Pending());
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

// ---- In step ----------------------------------------------------------------------------------

// Two streams that deliver in fragments, as devices do: at clocks and phases of their own.
class TwoDevices {
public:
    struct Device {
        double period = 30'000; // us between two fragments
        double phase = 0;       // us
        double jitter = 0;      // us, at most
        double end = 1e12;      // us, behind which nothing comes
        std::function<bool(double)> sounds = [](double /*us*/) { return true; };
    };
    static constexpr std::size_t kFragment = 3; // packets

    TwoDevices(const Device& one, const Device& two) : devices_{one, two} {}

    // Plays for as long, and reads whenever a reader is woken, as the mixing round does: after both
    // have been. Returns the share of the packets of `one` that found an equal number of `two`'s.
    double Play(double us) {
        std::mt19937 random(7);
        double next[] = {devices_[0].phase, devices_[1].phase};
        double at[] = {next[0], next[1]};
        while (std::min(at[0], at[1]) < us) {
            const std::size_t which = at[0] <= at[1] ? 0 : 1;
            const bool sound = devices_[which].sounds(at[which]);
            const std::vector<float> fragment(kFragment, sound ? 1.0F : 0.0F);
            const Lockstep::Clock::time_point now{
                std::chrono::microseconds(static_cast<std::int64_t>(at[which]))};
            steps_.Arrived(members_[which], fragment.data(), kFragment, now);
            Round(now);
            next[which] += devices_[which].period;
            at[which] = next[which] + devices_[which].jitter *
                                          std::uniform_real_distribution<double>(0, 1)(random);
            if (at[which] > devices_[which].end) {
                at[which] = std::numeric_limits<double>::infinity();
            }
        }
        return static_cast<double>(added_) / static_cast<double>(std::max<std::size_t>(read_, 1));
    }
    std::size_t Read() const { return read_; } // of `one`
    std::size_t Backlog() const { return backlog_; }
    Lockstep::Clock::duration ClosestRounds() const { return closestRounds_; }

private:
    void Round(Lockstep::Clock::time_point now) {
        backlog_ = std::max({backlog_, rings_[0].Pending(), rings_[1].Pending()});
        if (!std::exchange(woken_, false)) {
            return;
        }
        closestRounds_ = std::min(closestRounds_, now - lastRound_);
        lastRound_ = now;
        const std::size_t one = Drain(rings_[0]);
        const std::size_t two = Drain(rings_[1]);
        read_ += one;
        added_ += std::min(one, two);
    }
    static std::size_t Drain(PacketRing& ring) {
        std::size_t packets = 0;
        for (HeldPacket packet{}; ring.Hold(packet); ring.Release()) {
            packets += packet.silent ? 0 : 1;
        }
        return packets;
    }

    Device devices_[2];
    bool woken_ = false;
    PacketRing rings_[2] = {{1, 100}, {1, 100}};
    Lockstep::Member members_[2] = {{rings_[0], [this](bool /*sound*/) { woken_ = true; }},
                                    {rings_[1], [this](bool /*sound*/) { woken_ = true; }}};
    Lockstep steps_ = [this] {
        Lockstep steps;
        steps.Join(members_[0]);
        steps.Join(members_[1]);
        return steps;
    }();
    std::size_t read_ = 0;
    std::size_t added_ = 0;
    std::size_t backlog_ = 0;
    Lockstep::Clock::time_point lastRound_{std::chrono::hours(-1)};
    Lockstep::Clock::duration closestRounds_ = std::chrono::hours(1);
};

constexpr double kTenMinutes = 600e6; // us

TEST(LockstepUse, PacketsFindTheirCounterpartsAtAnyPhaseJitterAndDrift) {
    for (const double phase : {0.0, 4'000.0, 15'000.0, 29'000.0}) {
        for (const double drift : {-200e-6, 0.0, 200e-6, 2e-3}) {
            TwoDevices devices({}, {30'000 * (1 + drift), phase, 12'000});
            EXPECT_GE(devices.Play(kTenMinutes), 0.995) << "phase " << phase << " drift " << drift;
            EXPECT_LE(devices.Backlog(), Lockstep::kLongestWait + TwoDevices::kFragment);
            EXPECT_GE(devices.Read(), 59'980U) << "sound is lost";
            EXPECT_GE(devices.ClosestRounds(), Lockstep::kStepDistance) << "a round is torn";
        }
    }
}

TEST(LockstepUse, NobodyWaitsForASilentStreamNorLongForOneThatHasStopped) {
    // The second one speaks for a second, is silent for a second, and so on.
    TwoDevices turns({}, {.phase = 10'000,
                          .sounds = [](double us) { return static_cast<int>(us / 1e6) % 2 == 0; }});
    turns.Play(10e6);
    EXPECT_LE(turns.Backlog(), 2 * TwoDevices::kFragment);
    EXPECT_GE(turns.Read(), 1000U - 2 * TwoDevices::kFragment);
    TwoDevices stops({}, {.phase = 10'000, .end = 5e6});
    stops.Play(10e6);
    EXPECT_LE(stops.Backlog(), Lockstep::kLongestWait + TwoDevices::kFragment);
    EXPECT_GE(stops.Read(), 1000U - TwoDevices::kFragment);
}

} // namespace

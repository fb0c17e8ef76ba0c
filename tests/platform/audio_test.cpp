// The sound interfaces against a real sound server: what is listed, what arrives, and what happens
// when something goes away.
#include "audio/packet_ring.h"
#include "support/sound_player.h"
#include "support/sound_server.h"

#include <audioclient.h>
#include <functiondiscoverykeys_devpkey.h>
#include <ksmedia.h>
#include <mmdeviceapi.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <iterator>
#include <limits>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
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

struct ReleaseReference {
    void operator()(IUnknown* object) const { object->Release(); }
};
template <typename T>
using Com = std::unique_ptr<T, ReleaseReference>;

struct CloseEvent {
    void operator()(void* event) const { CloseHandle(event); }
};
using Event = std::unique_ptr<void, CloseEvent>;

struct FreeTaskMemory {
    void operator()(void* memory) const { CoTaskMemFree(memory); }
};
using MixFormatOwner = std::unique_ptr<WAVEFORMATEX, FreeTaskMemory>;

// Calls `call` with the place for an object of type T; null when it fails.
template <typename T, typename Call>
Com<T> Made(Call call) {
    void* object = nullptr;
    return SUCCEEDED(call(&object)) ? Com<T>(static_cast<T*>(object)) : nullptr;
}

Com<IMMDeviceEnumerator> MakeEnumerator() {
    return Made<IMMDeviceEnumerator>([](void** object) {
        return CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                                __uuidof(IMMDeviceEnumerator), object);
    });
}

Com<IMMDevice> FindDevice(const std::u16string& id) {
    IMMDevice* device = nullptr;
    MakeEnumerator()->GetDevice(id.c_str(), &device);
    return Com<IMMDevice>(device);
}

Com<IAudioClient> ActivateClient(IMMDevice& device) {
    return Made<IAudioClient>([&device](void** object) {
        return device.Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, object);
    });
}

MixFormatOwner MixFormat(IAudioClient& client) {
    WAVEFORMATEX* format = nullptr;
    client.GetMixFormat(&format);
    return MixFormatOwner(format);
}

std::u16string IdOf(IMMDevice& device) {
    LPWSTR id = nullptr;
    if (FAILED(device.GetId(&id))) {
        return {};
    }
    const std::unique_ptr<WCHAR, FreeTaskMemory> owner(id);
    return id;
}

std::u16string NameOf(IMMDevice& device) {
    IPropertyStore* opened = nullptr;
    if (FAILED(device.OpenPropertyStore(STGM_READ, &opened))) {
        return {};
    }
    const Com<IPropertyStore> store(opened);
    PROPVARIANT value;
    PropVariantInit(&value);
    std::u16string name;
    if (SUCCEEDED(store->GetValue(PKEY_Device_FriendlyName, &value)) && value.vt == VT_LPWSTR) {
        name = value.pwszVal;
    }
    PropVariantClear(&value);
    return name;
}

using Rows = std::vector<std::pair<std::u16string, std::u16string>>;

// (id, name) of every endpoint in order.
Rows Listed(EDataFlow flow) {
    const auto enumerator = MakeEnumerator();
    IMMDeviceCollection* made = nullptr;
    if (FAILED(enumerator->EnumAudioEndpoints(flow, DEVICE_STATE_ACTIVE, &made))) {
        return {};
    }
    const Com<IMMDeviceCollection> collection(made);
    UINT count = 0;
    collection->GetCount(&count);
    Rows result;
    for (UINT i = 0; i < count; ++i) {
        IMMDevice* device = nullptr;
        if (SUCCEEDED(collection->Item(i, &device))) {
            const Com<IMMDevice> owner(device);
            result.emplace_back(IdOf(*device), NameOf(*device));
        }
    }
    return result;
}

// The default's id, or the result in place of it.
std::pair<HRESULT, std::u16string> DefaultOf(EDataFlow flow) {
    IMMDevice* device = nullptr;
    const HRESULT hr = MakeEnumerator()->GetDefaultAudioEndpoint(flow, eConsole, &device);
    const Com<IMMDevice> owner(device);
    return {hr, device != nullptr ? IdOf(*device) : std::u16string()};
}

// A stream as the program opens it: a microphone has an event, loopback is polled.
struct Capture {
    Event event;
    Com<IAudioClient> client;
    Com<IAudioCaptureClient> packets;

    // Waits for a packet; false when the stream has failed or nothing comes.
    bool WaitForPacket() const {
        const auto end = Clock::now() + kPatience;
        while (Clock::now() < end) {
            UINT32 frames = 0;
            if (FAILED(packets->GetNextPacketSize(&frames)) || frames > 0) {
                return frames > 0;
            }
            if (event != nullptr) {
                WaitForSingleObject(event.get(), 200);
            } else {
                Sleep(1);
            }
        }
        return false;
    }
};

Capture OpenCapture(const std::u16string& id, REFERENCE_TIME slack = kOneSecond) {
    const auto device = FindDevice(id);
    if (device == nullptr) {
        return {};
    }
    Capture capture;
    capture.client = ActivateClient(*device);
    const bool loopback = id.starts_with(u"render:");
    const DWORD flags = loopback ? AUDCLNT_STREAMFLAGS_LOOPBACK : AUDCLNT_STREAMFLAGS_EVENTCALLBACK;
    if (FAILED(capture.client->Initialize(AUDCLNT_SHAREMODE_SHARED, flags, slack, 0,
                                          MixFormat(*capture.client).get(), nullptr))) {
        return {};
    }
    if (!loopback) {
        capture.event.reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
        capture.client->SetEventHandle(capture.event.get());
    }
    capture.packets = Made<IAudioCaptureClient>([&capture](void** object) {
        return capture.client->GetService(__uuidof(IAudioCaptureClient), object);
    });
    return capture;
}

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

// ---- COM --------------------------------------------------------------------------------------

// Hands out one object, and counts its own references.
struct CountingFactory : IClassFactory {
    explicit CountingFactory(IUnknown* product) : handedOut(product) {}
    virtual ~CountingFactory() = default;
    HRESULT QueryInterface(REFIID iid, void** object) override {
        if (iid != __uuidof(IClassFactory) && iid != __uuidof(IUnknown)) {
            return E_NOINTERFACE;
        }
        AddRef();
        *object = this;
        return S_OK;
    }
    ULONG AddRef() override { return ++references; }
    ULONG Release() override { return --references; }
    HRESULT CreateInstance(IUnknown* /*outer*/, REFIID iid, void** object) override {
        return handedOut->QueryInterface(iid, object);
    }
    HRESULT LockServer(BOOL /*lock*/) override { return S_OK; }

    IUnknown* handedOut;
    std::atomic<ULONG> references{1};
};

TEST(ComClasses, RegisteredFactoryStandsBeforeTheBuiltInClassUntilRevoked) {
    const auto own = MakeEnumerator();
    ASSERT_NE(own, nullptr);
    CountingFactory first(own.get());
    CountingFactory second(own.get());
    DWORD numbers[2] = {};
    ASSERT_EQ(CoRegisterClassObject(__uuidof(MMDeviceEnumerator), &first, CLSCTX_INPROC_SERVER,
                                    REGCLS_MULTIPLEUSE, &numbers[0]),
              S_OK);
    ASSERT_EQ(CoRegisterClassObject(__uuidof(IUnknown), &second, CLSCTX_INPROC_SERVER,
                                    REGCLS_MULTIPLEUSE, &numbers[1]),
              S_OK);
    EXPECT_EQ(MakeEnumerator().get(), own.get());

    EXPECT_EQ(CoRevokeClassObject(numbers[0]), S_OK);
    EXPECT_NE(MakeEnumerator().get(), own.get());
    EXPECT_TRUE(FAILED(CoRevokeClassObject(numbers[0])));
    EXPECT_EQ(CoRevokeClassObject(numbers[1]), S_OK);
    EXPECT_EQ(first.references, 1U);
    EXPECT_EQ(second.references, 1U);

    void* object = &first;
    EXPECT_EQ(
        CoCreateInstance(__uuidof(IUnknown), nullptr, CLSCTX_ALL, __uuidof(IUnknown), &object),
        REGDB_E_CLASSNOTREG);
    EXPECT_EQ(object, nullptr);
}

// ---- Endpoints --------------------------------------------------------------------------------

TEST(AudioEndpoints, WithoutServerEverythingFailsAtOnce) {
    const auto took = Took([] {
        const auto enumerator = MakeEnumerator();
        ASSERT_NE(enumerator, nullptr);
        IMMDeviceCollection* collection = nullptr;
        EXPECT_EQ(enumerator->EnumAudioEndpoints(eRender, DEVICE_STATE_ACTIVE, &collection),
                  AUDCLNT_E_SERVICE_NOT_RUNNING);
        IMMDevice* device = nullptr;
        EXPECT_EQ(enumerator->GetDefaultAudioEndpoint(eCapture, eConsole, &device),
                  AUDCLNT_E_SERVICE_NOT_RUNNING);
        EXPECT_EQ(enumerator->GetDevice(u"render:sink", &device), AUDCLNT_E_SERVICE_NOT_RUNNING);
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

TEST(AudioEndpoints, ListKeepsTheServersOrderAndIdsLeadBackToTheirOwnDeviceOnly) {
    SoundServer server;
    server.AddSink("zulu", 48000, 2, "Højttaler 扬声器 🎧");
    server.AddSink("alpha", 48000, 2, "the sink");
    server.LoadModule("module-null-source", "source_name=mike description=source");
    EXPECT_EQ(Listed(eRender),
              (Rows{{u"render:zulu", u"Højttaler 扬声器 🎧"}, {u"render:alpha", u"the sink"}}));
    EXPECT_EQ(Listed(eCapture), (Rows{{u"capture:mike", u"source"}}));
    for (const EDataFlow flow : {eRender, eCapture}) {
        for (const auto& [id, name] : Listed(flow)) {
            const auto device = FindDevice(id);
            ASSERT_NE(device, nullptr);
            EXPECT_EQ(IdOf(*device), id);
            EXPECT_EQ(NameOf(*device), name);
        }
    }
    // Names that the server would understand but that are no ids of ours, monitors among them.
    for (const char16_t* id :
         {u"", u"alpha", u"render:", u"render:0", u"render:mike", u"render:alpha.monitor",
          u"render:@DEFAULT_SINK@", u"capture:alpha", u"capture:alpha.monitor",
          u"capture:@DEFAULT_SOURCE@", u"RENDER:alpha", u"capture:\xD800"}) {
        IMMDevice* device = nullptr;
        EXPECT_EQ(MakeEnumerator()->GetDevice(id, &device), E_NOTFOUND);
        EXPECT_EQ(device, nullptr);
    }
}

// ---- The calls on a client --------------------------------------------------------------------

// ---- What arrives -----------------------------------------------------------------------------

struct Route {
    const char* title;
    bool microphone;
    std::uint32_t sampleRate;
    unsigned channels;
    const char* sampleFormat; // the device's
    UINT32 packetFrames;
};
std::ostream& operator<<(std::ostream& out, const Route& route) {
    return out << route.title;
}

class AudioRoute : public testing::TestWithParam<Route> {
protected:
    AudioRoute() {
        if (GetParam().microphone) {
            server_.AddMicrophone("mic", GetParam().sampleRate, GetParam().channels);
        } else {
            server_.AddSink("sink", GetParam().sampleRate, GetParam().channels, {},
                            GetParam().sampleFormat);
        }
    }
    std::u16string EndpointId() const {
        return GetParam().microphone ? u"capture:mic" : u"render:sink";
    }
    SoundPlayer MakePlayer(unsigned bufferMs) const {
        return {GetParam().microphone ? "mic_speaker" : "sink", GetParam().sampleRate,
                GetParam().channels, bufferMs};
    }

    SoundServer server_;
};

TEST_P(AudioRoute, SoundArrivesCompleteAndToTheLastBitWithSilenceFlagged) {
    const auto [title, microphone, sampleRate, channels, sampleFormat, packetFrames] = GetParam();
    const Capture capture = OpenCapture(EndpointId());
    ASSERT_NE(capture.packets, nullptr);
    const auto format = MixFormat(*capture.client);
    ASSERT_EQ(format->wFormatTag, WAVE_FORMAT_EXTENSIBLE);
    ASSERT_EQ(format->cbSize, 22);
    EXPECT_EQ(format->nSamplesPerSec, sampleRate);
    EXPECT_EQ(format->nChannels, channels);
    EXPECT_EQ(format->wBitsPerSample, 32);
    EXPECT_EQ(format->nBlockAlign, channels * 4);
    EXPECT_EQ(format->nAvgBytesPerSec, sampleRate * channels * 4);
    EXPECT_TRUE(reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(format.get())->SubFormat ==
                KSDATAFORMAT_SUBTYPE_IEEE_FLOAT);

    // No zeros, so that a gap shows, and 16-bit values, so that every device can carry them.
    std::vector<std::int16_t> whole(std::size_t{sampleRate} / 2 * channels);
    for (std::size_t i = 0; i < whole.size(); ++i) {
        const auto size = static_cast<int>(i * 7919 % 32749) + 1;
        whole[i] = static_cast<std::int16_t>(i % 3 == 0 ? -size : size);
    }
    std::vector<float> played(whole.size());
    std::transform(whole.begin(), whole.end(), played.begin(),
                   [](std::int16_t sample) { return static_cast<float>(sample) / 32768.0F; });

    ASSERT_EQ(capture.client->Start(), S_OK);
    ASSERT_TRUE(capture.WaitForPacket());
    SoundPlayer player = MakePlayer(400);
    if (std::string(sampleFormat) == "s16le") {
        player.Play(whole);
    } else {
        player.Play(played);
    }
    std::vector<float> heard;
    bool soundBegan = false;
    int silentAfter = 0;
    int silentBefore = 0;
    while (silentAfter < 3) {
        const Packet packet = ReadPacket(capture, channels);
        ASSERT_EQ(packet.samples.size(), std::size_t{packetFrames} * channels);
        const bool silent = (packet.flags & AUDCLNT_BUFFERFLAGS_SILENT) != 0;
        ASSERT_EQ(silent, IsAllZero(packet.samples));
        ASSERT_EQ(packet.flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY, 0U);
        soundBegan = soundBegan || !silent;
        silentBefore += silent && !soundBegan ? 1 : 0;
        silentAfter += silent && soundBegan ? 1 : 0;
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

INSTANTIATE_TEST_SUITE_P(
    Formats, AudioRoute,
    testing::Values(Route{"Loopback48kStereo", false, 48000, 2, "float32le", 480},
                    Route{"Loopback44kMono", false, 44100, 1, "float32le", 441},
                    Route{"Loopback96kSixChannels", false, 96000, 6, "float32le", 960},
                    Route{"LoopbackOf16BitDevice", false, 48000, 2, "s16le", 480},
                    Route{"Loopback11kOddPacket", false, 11025, 2, "float32le", 110},
                    Route{"Microphone48kStereo", true, 48000, 2, "float32le", 480},
                    Route{"Microphone16kMono", true, 16000, 1, "float32le", 160}),
    [](const auto& route) { return route.param.title; });

class AudioDelay : public AudioRoute {};

TEST_P(AudioDelay, PacketsComeSoonAndFewAtATime) {
    const unsigned channels = GetParam().channels;
    const Capture capture = OpenCapture(EndpointId());
    ASSERT_NE(capture.packets, nullptr);
    ASSERT_EQ(capture.client->Start(), S_OK);
    // The device idles: nobody but the capture asks for a short way.
    std::vector<int> bursts;
    while (bursts.size() < 30) {
        ASSERT_TRUE(capture.WaitForPacket());
        int packets = 0;
        for (UINT32 frames = 1; frames > 0; ++packets) {
            ReadPacket(capture, channels);
            ASSERT_EQ(capture.packets->GetNextPacketSize(&frames), S_OK);
        }
        bursts.push_back(packets);
    }
    std::nth_element(bursts.begin(), bursts.begin() + 15, bursts.end());
    // Who polls may take silence up to 50 ms late; sound must come at once, as measured below.
    EXPECT_LE(bursts[15], GetParam().microphone ? 3 : 7);

    // Each sample tells its own number.
    constexpr float kStep = 1.0F / 16'777'216.0F;
    std::vector<float> ramp(std::size_t{GetParam().sampleRate} * channels);
    for (std::size_t i = 0; i < ramp.size(); ++i) {
        const std::size_t number = i / channels + 1;
        ramp[i] = static_cast<float>(number) * kStep;
    }
    SoundPlayer player = MakePlayer(10);
    player.Play(ramp);
    std::vector<double> delaysMs;
    while (delaysMs.size() < 50) {
        const Packet packet = ReadPacket(capture, channels);
        const auto now = Clock::now();
        ASSERT_FALSE(packet.samples.empty());
        const float middle = packet.samples[packet.samples.size() / 2];
        if (middle > 0) {
            const auto frame = static_cast<std::size_t>(std::lround(middle / kStep)) - 1;
            const auto handedOver = player.HandedOverAt(frame);
            ASSERT_TRUE(handedOver.has_value());
            delaysMs.push_back(
                std::chrono::duration<double, std::milli>(now - *handedOver).count());
        }
    }
    std::nth_element(delaysMs.begin(), delaysMs.begin() + 25, delaysMs.end());
    RecordProperty("medianDelayMs", std::to_string(delaysMs[25]));
    EXPECT_LT(delaysMs[25], 40); // 11 to 13 on a quiet machine
}

INSTANTIATE_TEST_SUITE_P(Routes, AudioDelay,
                         testing::Values(Route{"Loopback", false, 48000, 2, "float32le", 480},
                                         Route{"Microphone", true, 48000, 2, "float32le", 480}),
                         [](const auto& route) { return route.param.title; });

TEST(AudioStream, StoppedStreamIsQuietAndGoesOnWithASeam) {
    SoundServer server;
    server.AddMicrophone("mic", 48000, 2);
    const Capture capture = OpenCapture(u"capture:mic");
    ASSERT_NE(capture.packets, nullptr);
    ASSERT_EQ(capture.client->Start(), S_OK);
    ASSERT_FALSE(ReadPacket(capture, 2).samples.empty());
    ASSERT_EQ(capture.client->Stop(), S_OK);
    UINT32 frames = 1;
    while (capture.packets->GetNextPacketSize(&frames) == S_OK && frames > 0) {
        EXPECT_EQ(ReadPacket(capture, 2).flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY, 0U);
    }
    WaitForSingleObject(capture.event.get(), 0); // what came before the stop
    EXPECT_EQ(WaitForSingleObject(capture.event.get(), 100), WAIT_TIMEOUT);
    ASSERT_EQ(capture.client->Start(), S_OK);
    EXPECT_NE(ReadPacket(capture, 2).flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY, 0U);
    EXPECT_EQ(ReadPacket(capture, 2).flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY, 0U);
}

TEST(AudioStream, UnreadPacketsBeyondTheBufferGoOldestFirst) {
    SoundServer server;
    server.AddMicrophone("mic", 48000, 2);
    const Capture capture = OpenCapture(u"capture:mic", kOneSecond / 10);
    ASSERT_NE(capture.packets, nullptr);
    ASSERT_EQ(capture.client->Start(), S_OK);
    for (int packet = 0; packet < 30; ++packet) {
        ASSERT_EQ(WaitForSingleObject(capture.event.get(), 5000), WAIT_OBJECT_0);
    }
    ASSERT_EQ(capture.client->Stop(), S_OK);
    EXPECT_NE(ReadPacket(capture, 2).flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY, 0U);
    int left = 0;
    for (UINT32 frames = 0; capture.packets->GetNextPacketSize(&frames) == S_OK && frames > 0;
         ++left) {
        EXPECT_EQ(ReadPacket(capture, 2).flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY, 0U);
    }
    EXPECT_EQ(left, 9);
}

// ---- What goes away ---------------------------------------------------------------------------

struct Loss {
    const char* title;
    bool microphone;
    bool wholeServer;
};
std::ostream& operator<<(std::ostream& out, const Loss& loss) {
    return out << loss.title;
}

class AudioLoss : public testing::TestWithParam<Loss> {};

TEST_P(AudioLoss, StreamFailsAtOnceAndEndsWithoutHanging) {
    SoundServer server;
    server.AddSink("other", 48000, 2); // a stream must not be saved by moving it here
    const SoundServer::Module device = GetParam().microphone
                                           ? server.AddMicrophone("mic", 48000, 2).speaker
                                           : server.AddSink("sink", 48000, 2);
    Capture capture = OpenCapture(GetParam().microphone ? u"capture:mic" : u"render:sink");
    ASSERT_NE(capture.packets, nullptr);
    ASSERT_EQ(capture.client->Start(), S_OK);
    ASSERT_TRUE(capture.WaitForPacket());
    BYTE* data = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0;
    ASSERT_EQ(capture.packets->GetBuffer(&data, &frames, &flags, nullptr, nullptr), S_OK);

    if (GetParam().wholeServer) {
        server.Kill();
    } else {
        server.UnloadModule(device);
    }
    const auto end = Clock::now() + kPatience;
    UINT32 next = 0;
    while (SUCCEEDED(capture.packets->GetNextPacketSize(&next)) && Clock::now() < end) {
        if (capture.event != nullptr) {
            // A reader sleeps here without a limit if the event is not set at the end.
            ASSERT_EQ(WaitForSingleObject(capture.event.get(), 5000), WAIT_OBJECT_0);
        } else {
            Sleep(1);
        }
    }
    EXPECT_EQ(capture.packets->GetNextPacketSize(&next), AUDCLNT_E_DEVICE_INVALIDATED);
    EXPECT_TRUE(IsAllZero({reinterpret_cast<float*>(data), reinterpret_cast<float*>(data) + 960}));
    EXPECT_EQ(capture.packets->ReleaseBuffer(frames), AUDCLNT_E_DEVICE_INVALIDATED);
    EXPECT_EQ(capture.packets->GetBuffer(&data, &frames, &flags, nullptr, nullptr),
              AUDCLNT_E_DEVICE_INVALIDATED);
    const auto took = Took([&capture] {
        EXPECT_EQ(capture.client->Stop(), S_OK);
        EXPECT_EQ(capture.client->Start(), AUDCLNT_E_DEVICE_INVALIDATED);
        capture = {};
    });
    EXPECT_LT(took, seconds(2));
    EXPECT_EQ(DefaultOf(eRender).first,
              GetParam().wholeServer ? AUDCLNT_E_SERVICE_NOT_RUNNING : S_OK);
}

INSTANTIATE_TEST_SUITE_P(Losses, AudioLoss,
                         testing::Values(Loss{"SinkGone", false, false},
                                         Loss{"MicrophoneGone", true, false},
                                         Loss{"ServerKilledDuringLoopback", false, true},
                                         Loss{"ServerKilledDuringMicrophone", true, true}),
                         [](const auto& loss) { return loss.param.title; });

TEST(AudioLossBeforeUse, DeviceThatWentSinceItWasListedIsRefusedAtInitialize) {
    SoundServer server;
    const SoundServer::Module sink = server.AddSink("sink", 48000, 2);
    const auto device = FindDevice(u"render:sink");
    ASSERT_NE(device, nullptr);
    server.UnloadModule(sink);
    const auto client = ActivateClient(*device);
    EXPECT_EQ(client->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_LOOPBACK, kOneSecond,
                                 0, MixFormat(*client).get(), nullptr),
              AUDCLNT_E_DEVICE_INVALIDATED);
}

TEST(AudioLossBeforeUse, ServerThatDoesNotAnswerHoldsNobodyUpForLong) {
    SoundServer server;
    server.AddSink("sink", 48000, 2);
    Capture capture = OpenCapture(u"render:sink");
    ASSERT_NE(capture.packets, nullptr);
    ASSERT_EQ(capture.client->Start(), S_OK);
    server.Freeze();
    auto newcomer = std::async(std::launch::async, [] { return DefaultOf(eRender).first; });
    const auto stopping = Took([&capture] { EXPECT_EQ(capture.client->Stop(), S_OK); });
    EXPECT_LT(stopping, seconds(6));
    EXPECT_EQ(newcomer.get(), AUDCLNT_E_SERVICE_NOT_RUNNING);
    const auto afterwards = Took([&capture] {
        EXPECT_EQ(capture.client->Start(), AUDCLNT_E_DEVICE_INVALIDATED);
        capture = {};
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
            const Capture capture = OpenCapture(i % 2 == 0 ? u"render:sink" : u"capture:mic");
            ASSERT_NE(capture.packets, nullptr);
            ASSERT_EQ(capture.client->Start(), S_OK);
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

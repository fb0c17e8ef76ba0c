// The calls on a client in the order in which they are made, and the reading of packets. Knows the
// stream; what the sound server is like stands behind it.
#include "audio/audio_client.h"

#include "audio/capture_stream.h"
#include "process/poll_pause.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace audio {

namespace {

// Reads packets. One thread at a time, also while another one stops the client; no call waits for
// the server or takes a lock. All clients of one stream read the same packets.
class CaptureClient final : public ComObject<IAudioCaptureClient> {
public:
    // `polled`: nothing tells the reader of packets, it asks time and again.
    CaptureClient(std::shared_ptr<CaptureStream> stream, bool polled)
        : stream_(std::move(stream)), polled_(polled) {}

    HRESULT GetBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64* devicePosition,
                      UINT64* qpcPosition) override {
        if (data == nullptr || frames == nullptr || flags == nullptr) {
            return E_POINTER;
        }
        *data = nullptr;
        *frames = 0;
        *flags = 0;
        if (devicePosition != nullptr || qpcPosition != nullptr) {
            return E_NOTIMPL; // positions are not kept
        }
        PacketRing& packets = stream_->Packets();
        if (packets.IsHolding()) {
            return AUDCLNT_E_OUT_OF_ORDER;
        }
        if (!stream_->IsAlive()) {
            return AUDCLNT_E_DEVICE_INVALIDATED;
        }
        HeldPacket packet{};
        if (!packets.Hold(packet)) {
            return AUDCLNT_S_BUFFER_EMPTY;
        }
        *data = reinterpret_cast<BYTE*>(packet.samples);
        *frames = stream_->FramesPerPacket();
        *flags = (packet.silent ? AUDCLNT_BUFFERFLAGS_SILENT : 0) |
                 (packet.discontinuous ? AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY : 0);
        return S_OK;
    }

    // 0 frames give the packet back unread.
    HRESULT ReleaseBuffer(UINT32 frames) override {
        PacketRing& packets = stream_->Packets();
        if (frames != 0 && frames != stream_->FramesPerPacket()) {
            return AUDCLNT_E_INVALID_SIZE;
        }
        if (!packets.IsHolding()) {
            return frames == 0 ? S_OK : AUDCLNT_E_OUT_OF_ORDER;
        }
        if (frames == 0) {
            packets.PutBack();
        } else {
            packets.Release();
        }
        return stream_->IsAlive() ? S_OK : AUDCLNT_E_DEVICE_INVALIDATED;
    }

    HRESULT GetNextPacketSize(UINT32* frames) override {
        if (frames == nullptr) {
            return E_POINTER;
        }
        *frames = 0;
        if (!stream_->IsAlive()) {
            return AUDCLNT_E_DEVICE_INVALIDATED;
        }
        if (stream_->Packets().HasPacket()) {
            *frames = stream_->FramesPerPacket();
        } else if (polled_) {
            process::SleepUntilReady(stream_->PacketsReady());
        }
        return S_OK;
    }

private:
    const std::shared_ptr<CaptureStream> stream_;
    const bool polled_;
};

// How many packets may wait unread.
std::size_t SlackPackets(REFERENCE_TIME duration, const Endpoint& endpoint) {
    constexpr REFERENCE_TIME kSecond = 10'000'000;
    constexpr REFERENCE_TIME kLongest = 10 * kSecond;
    constexpr std::size_t kFewest = 2;
    const auto frames =
        static_cast<std::size_t>(std::clamp<REFERENCE_TIME>(duration, 0, kLongest)) *
        endpoint.format.rate / kSecond;
    return std::max(kFewest, frames / PacketFrames(endpoint));
}

// The caller makes its calls one at a time; the capture client may be read meanwhile.
class AudioClient final : public ComObject<IAudioClient> {
public:
    AudioClient(std::shared_ptr<ServerConnection> connection, Endpoint endpoint)
        : connection_(std::move(connection)), endpoint_(std::move(endpoint)) {}

    // A capture client may hold the stream longer, but the event is the caller's to close now.
    ~AudioClient() override {
        if (stream_ != nullptr) {
            stream_->SetReadyEvent(nullptr);
        }
    }

    HRESULT GetMixFormat(WAVEFORMATEX** format) override {
        if (format == nullptr) {
            return E_POINTER;
        }
        const WAVEFORMATEXTENSIBLE mixFormat = MixFormat(endpoint_);
        void* const copy = CoTaskMemAlloc(sizeof mixFormat);
        *format = static_cast<WAVEFORMATEX*>(copy);
        if (copy == nullptr) {
            return E_OUTOFMEMORY;
        }
        std::memcpy(copy, &mixFormat, sizeof mixFormat);
        return S_OK;
    }

    // The format must be the mix format to the last byte, and the period is the room's own.
    HRESULT Initialize(AUDCLNT_SHAREMODE mode, DWORD flags, REFERENCE_TIME bufferDuration,
                       REFERENCE_TIME periodicity, const WAVEFORMATEX* format,
                       const GUID* /*session*/) override {
        constexpr DWORD kKnownFlags =
            AUDCLNT_STREAMFLAGS_LOOPBACK | AUDCLNT_STREAMFLAGS_EVENTCALLBACK;
        if (stream_ != nullptr) {
            return AUDCLNT_E_ALREADY_INITIALIZED;
        }
        if (format == nullptr) {
            return E_POINTER;
        }
        if (mode != AUDCLNT_SHAREMODE_SHARED || (flags & ~kKnownFlags) != 0 || bufferDuration < 0 ||
            periodicity != 0) {
            return E_INVALIDARG;
        }
        // There is nothing to play here: a render endpoint can only be listened to.
        const bool loopback = (flags & AUDCLNT_STREAMFLAGS_LOOPBACK) != 0;
        if (loopback != (endpoint_.flow == eRender)) {
            return AUDCLNT_E_WRONG_ENDPOINT_TYPE;
        }
        const WAVEFORMATEXTENSIBLE mixFormat = MixFormat(endpoint_);
        if (format->wFormatTag != mixFormat.Format.wFormatTag ||
            format->cbSize != mixFormat.Format.cbSize ||
            std::memcmp(format, &mixFormat, sizeof mixFormat) != 0) {
            return AUDCLNT_E_UNSUPPORTED_FORMAT;
        }
        stream_ =
            CaptureStream::Open(connection_, endpoint_, SlackPackets(bufferDuration, endpoint_));
        if (stream_ == nullptr) {
            return AUDCLNT_E_DEVICE_INVALIDATED;
        }
        wantsEvent_ = (flags & AUDCLNT_STREAMFLAGS_EVENTCALLBACK) != 0;
        return S_OK;
    }

    HRESULT SetEventHandle(HANDLE event) override {
        if (stream_ == nullptr) {
            return AUDCLNT_E_NOT_INITIALIZED;
        }
        if (event == nullptr) {
            return E_INVALIDARG;
        }
        if (!wantsEvent_) {
            return AUDCLNT_E_EVENTHANDLE_NOT_EXPECTED;
        }
        stream_->SetReadyEvent(event);
        hasEvent_ = true;
        return S_OK;
    }

    HRESULT GetService(REFIID iid, void** object) override {
        if (object == nullptr) {
            return E_POINTER;
        }
        *object = nullptr;
        if (stream_ == nullptr) {
            return AUDCLNT_E_NOT_INITIALIZED;
        }
        return MakeObject<CaptureClient>(stream_, !wantsEvent_)->QueryInterface(iid, object);
    }

    HRESULT Start() override {
        if (stream_ == nullptr) {
            return AUDCLNT_E_NOT_INITIALIZED;
        }
        if (started_) {
            return AUDCLNT_E_NOT_STOPPED;
        }
        if (wantsEvent_ && !hasEvent_) {
            return AUDCLNT_E_EVENTHANDLE_NOT_SET;
        }
        started_ = stream_->Start();
        return started_ ? S_OK : AUDCLNT_E_DEVICE_INVALIDATED;
    }

    // Packets that wait stay readable. It succeeds without a server too: nothing comes any more.
    HRESULT Stop() override {
        if (stream_ == nullptr) {
            return AUDCLNT_E_NOT_INITIALIZED;
        }
        if (!std::exchange(started_, false)) {
            return S_FALSE;
        }
        stream_->Stop();
        return S_OK;
    }

private:
    const std::shared_ptr<ServerConnection> connection_;
    const Endpoint endpoint_;
    std::shared_ptr<CaptureStream> stream_; // null until initialised
    bool wantsEvent_ = false;
    bool hasEvent_ = false;
    bool started_ = false;
};

} // namespace

ComOwner<IAudioClient> MakeAudioClient(std::shared_ptr<ServerConnection> connection,
                                       Endpoint endpoint) {
    return MakeObject<AudioClient>(std::move(connection), std::move(endpoint));
}

} // namespace audio

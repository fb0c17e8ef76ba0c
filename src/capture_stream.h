// One open device stream: its parts, its way from a device id to running, and the loop that reads
// its packets. What the capture modes share; knows none of them.
#pragma once

#include "owner.h"
#include "sample_conversion.h"
#include "wide_text.h"

#include <windows.h>
#include <audioclient.h>
#include <avrt.h>
#include <mmdeviceapi.h>
#include <timeapi.h>

#include <atomic>
#include <cstdint>
#include <utility>
#include <vector>

// The calling thread's membership in the scheduling class of audio work, where the system grants
// it.
class MultimediaTask {
public:
    MultimediaTask() : task_(AvSetMmThreadCharacteristicsW(TEXT("Audio"), &index_)) {}
    ~MultimediaTask() { Leave(); }
    MultimediaTask(const MultimediaTask&) = delete;
    MultimediaTask& operator=(const MultimediaTask&) = delete;

    void Leave() {
        if (HANDLE task = std::exchange(task_, nullptr); task != nullptr) {
            AvRevertMmThreadCharacteristics(task);
        }
    }

private:
    DWORD index_ = 0;
    HANDLE task_;
};

// One-millisecond timer resolution for as long as it lives, where asked for.
class FineTimer {
public:
    explicit FineTimer(bool wanted) : wanted_(wanted) {
        if (wanted_) {
            timeBeginPeriod(1);
        }
    }
    ~FineTimer() {
        if (wanted_) {
            timeEndPeriod(1);
        }
    }
    FineTimer(const FineTimer&) = delete;
    FineTimer& operator=(const FineTimer&) = delete;

private:
    const bool wanted_;
};

// One stream of the mixed mode.
struct MixedStream {
    ComRef<IMMDevice> device;
    ComRef<IAudioClient> client;
    ComRef<IAudioCaptureClient> capture;
    EventHandle event;              // buffer-ready event; microphone only
    CoTaskMemory<WAVEFORMATEX> fmt; // the device's mix format
    bool isFloat = false;           // IsFloatFormat(fmt)
    bool loopback = false;
};

// The parts of a stream, wherever they are kept.
struct StreamParts {
    ComRef<IMMDevice>& device;
    ComRef<IAudioClient>& client;
    ComRef<IAudioCaptureClient>& capture;
    EventHandle& event;
    CoTaskMemory<WAVEFORMATEX>& fmt;
    bool& isFloat;
};

// The steps from a device id to a running stream, in their order.
enum class OpenStep {
    CreateEnumerator,
    GetDefaultEndpoint,
    GetDevice,
    Activate,
    GetMixFormat,
    Initialize,
    SetEventHandle,
    GetService,
    Start,
};

struct OpenResult {
    bool opened = false;
    OpenStep failedStep = OpenStep::CreateEnumerator; // of these, all when not opened
    HRESULT result = S_OK;
    int line = 0; // of the failed call
};

// Finds the device and its mix format. On failure the parts that were set stay set, here and below.
OpenResult OpenDevice(const WideString& deviceId, bool loopback, const StreamParts& parts);

// Opens a stream of that device in its mix format and starts it: event-driven on a capture
// endpoint, polled on a render endpoint.
OpenResult StartStream(bool loopback, const StreamParts& parts);

// Stops the stream and releases whatever part of it is there, in the order that the audio service
// wants: packets, client, device.
void CloseParts(const StreamParts& parts);

// What a thread needs to read the packets of a stream.
struct PacketSource {
    IAudioCaptureClient* capture;
    HANDLE event; // null on loopback, which is polled
    const WAVEFORMATEX* format;
    bool isFloat;
    bool loopback;
};

// Counts of one reading thread, from its start.
struct PacketCounts {
    std::uint64_t packets = 0; // attempts to fetch one
    std::uint64_t silent = 0;  // flagged silent
    std::uint64_t frames = 0;  // of packets that were not silent
    std::uint64_t cbFires = 0; // deliveries
};

// Waits for the next round of reading: false when there is none to do yet.
inline bool WaitForRound(const PacketSource& source) {
    if (source.loopback) {
        Sleep(1); // loopback has no event: it is polled
        return true;
    }
    return WaitForSingleObject(source.event, 200) == WAIT_OBJECT_0;
}

// Takes all waiting packets, `next` being the size of the first in frames. `onChunk` gets the
// converted samples of each packet that yields any, while the packet is still held, and tells
// whether it delivered them.
template <typename OnChunk>
void DrainPackets(const PacketSource& source, UINT32 next, PacketCounts& counts,
                  const OnChunk& onChunk) {
    while (next > 0) {
        ++counts.packets;
        BYTE* data = nullptr;
        UINT32 frames = 0;
        DWORD flags = 0;
        if (FAILED(source.capture->GetBuffer(&data, &frames, &flags, nullptr, nullptr))) {
            return;
        }
        if ((flags & AUDCLNT_BUFFERFLAGS_SILENT) != 0) {
            ++counts.silent;
        } else if (frames > 0) {
            counts.frames += frames;
            const auto samples = ConvertPacket(data, frames, *source.format, source.isFloat);
            if (!samples.empty() && onChunk(samples)) {
                ++counts.cbFires;
            }
        }
        source.capture->ReleaseBuffer(frames);
        if (FAILED(source.capture->GetNextPacketSize(&next))) {
            return;
        }
    }
}

// The body of every reading thread: rounds of waiting and draining until `stop`, or until the
// packet reader fails at the beginning of a round, as it does when the device has gone.
template <typename OnChunk, typename OnRound>
PacketCounts ReadPackets(const PacketSource& source, const std::atomic<bool>& stop,
                         const OnChunk& onChunk, const OnRound& onRound) {
    const FineTimer fineTimer(source.loopback);
    PacketCounts counts;
    while (!stop) {
        if (!WaitForRound(source)) {
            continue;
        }
        if (stop) {
            break;
        }
        UINT32 next = 0;
        if (FAILED(source.capture->GetNextPacketSize(&next))) {
            break;
        }
        DrainPackets(source, next, counts, onChunk);
        onRound(counts);
    }
    return counts;
}

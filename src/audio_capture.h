// Live audio: from the microphone, from what the computer itself plays, or from both mixed, as a
// stream of 16,000 Hz mono 16-bit PCM. Knows devices and the conversion, nothing of who listens.
#pragma once

#include "audio_devices.h"
#include "capture_stream.h"

#include <mmdeviceapi.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

// Takes captured audio: `bytes` bytes (even, above 0) of 16,000 Hz mono signed 16-bit samples,
// least significant byte first. The buffer is valid during the call only. Runs on a capture thread,
// which it must not block and whose AudioCapture it must not stop.
using PcmCallback = std::function<void(const std::uint8_t* data, std::uint32_t bytes)>;

// Told when a source has ended by itself, as when its device was unplugged. Runs on the capture
// thread of that source, under the same terms as PcmCallback.
using SourceEndCallback = std::function<void()>;

// One capture at a time, in one of three modes. The start operations and Stop of one object are
// called one after the other, by whichever thread; the callback runs on a thread of this class.
//
// A device id is one that EnumerateDevices gave; an empty one means the system's default. A start
// first stops what ran, and returns true once its threads run. When it returns false, the callback
// has been released and the reason is in the trace. A device that goes away later ends its source,
// of two that one alone; the object stays in its state until Stop or the next start.
class AudioCapture {
public:
    explicit AudioCapture(SourceEndCallback onSourceEnd = nullptr);
    ~AudioCapture();
    AudioCapture(const AudioCapture&) = delete;
    AudioCapture& operator=(const AudioCapture&) = delete;

    // The active endpoints of a direction, in the system's order. COM is initialised on the calling
    // thread. Never fails: what cannot be read is empty, what cannot be opened is left out.
    static std::vector<AudioDeviceInfo> EnumerateDevices(EDataFlow flow);

    bool StartMic(const WideString& deviceId, PcmCallback callback);
    bool StartLoopback(const WideString& deviceId, PcmCallback callback);
    bool StartMixed(const WideString& micDeviceId, const WideString& loopbackDeviceId,
                    PcmCallback callback);

    // Ends whatever runs, and waits for its threads. Harmless when nothing runs.
    void Stop();

private:
    bool StartInternal(const WideString& deviceId, bool loopback, PcmCallback callback);
    void CaptureThread(bool loopback);

    static bool OpenStream(const WideString& deviceId, bool loopback, MixedStream& stream);
    static void CloseStream(MixedStream& stream);
    static void StreamReadLoop(const MixedStream& stream, const std::atomic<bool>& stop,
                               std::mutex& mutex, std::vector<std::int16_t>& queue, HANDLE queued);
    bool LaunchMixThreads();
    void JoinThreads();
    void TellSourceEnd() const;
    void MicThread();
    void LoopbackThread();
    void MixThread();
    bool SamplesWait();

    StreamParts SingleSource();

    const SourceEndCallback onSourceEnd_;
    PcmCallback callback_; // written before threads start and after they end; Stop leaves it
    std::thread captureThread_;
    std::atomic<bool> stop_{false}; // true asks every capture thread to end
    std::mutex mutex_; // held while the members below are set up or torn down; no thread takes it

    // The single-source modes. Declared in the reverse order of their release.
    ComRef<IMMDevice> device_;
    ComRef<IAudioClient> client_;
    ComRef<IAudioCaptureClient> capture_;
    EventHandle hEvent_;             // buffer-ready event; microphone only
    CoTaskMemory<WAVEFORMATEX> fmt_; // the device's mix format
    bool isFloat_ = false;           // IsFloatFormat(fmt_)

    // The mixed mode.
    MixedStream micStream_;
    MixedStream loopStream_;
    std::thread micThread_;
    std::thread loopThread_;
    std::thread mixThread_;
    std::mutex mixMutex_; // guards the two queues; nothing is converted, mixed or called under it
    std::vector<std::int16_t> micBuffer_;
    std::vector<std::int16_t> loopBuffer_;
    const EventHandle mixWake_{CreateEventW(nullptr, FALSE, FALSE, nullptr)}; // samples, or stop_
};

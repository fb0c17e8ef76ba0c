// The mixed mode: two reading threads with a queue each, and one that adds what has arrived. The
// sources are joined by arrival alone; neither waits for the other.
#include "audio_capture.h"
#include "debug_trace.h"
#include "thread_start.h"

namespace {

// Half the time from one packet to the next, which is 10 ms on most systems: one of the two sources
// is never more than that behind the other. And a millisecond for what either comes late: without
// it every tenth sum is torn where they are just that far apart, and more on a busy machine.
constexpr DWORD kRoundPauseMs = 6;

StreamParts PartsOf(MixedStream& stream) {
    return {stream.device, stream.client, stream.capture, stream.event, stream.fmt, stream.isFloat};
}

} // namespace

bool AudioCapture::OpenStream(const WideString& deviceId, bool loopback, MixedStream& stream) {
    stream.loopback = loopback;
    OpenResult result = OpenDevice(deviceId, loopback, PartsOf(stream));
    if (result.opened) {
        result = StartStream(loopback, PartsOf(stream));
    }
    if (!result.opened) {
        if (result.failedStep == OpenStep::Initialize) {
            AudioTrace(TEXT("[AUDIO] OpenStream Initialize FAILED hr=0x%08X loopback=%d\n"),
                       static_cast<unsigned>(result.result), loopback ? 1 : 0);
        }
        return false;
    }
    AudioTrace(TEXT("[AUDIO] OpenStream OK  loopback=%d  %uHz %uch isFloat=%d\n"), loopback ? 1 : 0,
               static_cast<unsigned>(stream.fmt->nSamplesPerSec), unsigned{stream.fmt->nChannels},
               stream.isFloat ? 1 : 0);
    return true;
}

void AudioCapture::CloseStream(MixedStream& stream) {
    CloseParts(PartsOf(stream));
}

bool AudioCapture::StartMixed(const WideString& micDeviceId, const WideString& loopbackDeviceId,
                              PcmCallback callback) {
    TraceText(TEXT("[AUDIO] StartMixed\n"));
    Stop();
    bool started = false;
    if (!OpenStream(micDeviceId, false, micStream_)) {
        TraceText(TEXT("[AUDIO] StartMixed: failed to open mic stream\n"));
    } else if (!OpenStream(loopbackDeviceId, true, loopStream_)) {
        TraceText(TEXT("[AUDIO] StartMixed: failed to open loopback stream\n"));
    } else {
        callback_ = std::move(callback);
        stop_ = false;
        micBuffer_.clear();
        loopBuffer_.clear();
        started = LaunchMixThreads();
    }
    if (!started) {
        CloseStream(micStream_);
        CloseStream(loopStream_);
        callback = nullptr; // what it holds is free before the caller hears of the failure
        return false;
    }
    TraceText(TEXT("[AUDIO] StartMixed: all threads launched\n"));
    return true;
}

// All three or none.
bool AudioCapture::LaunchMixThreads() {
    if (StartThread(micThread_, [this] { MicThread(); }) &&
        StartThread(loopThread_, [this] { LoopbackThread(); }) &&
        StartThread(mixThread_, [this] { MixThread(); })) {
        return true;
    }
    TraceText(TEXT("[AUDIO] StartMixed: failed to start a thread\n"));
    stop_ = true;
    SetEvent(mixWake_.get());
    JoinThreads();
    callback_ = nullptr;
    return false;
}

void AudioCapture::StreamReadLoop(const MixedStream& stream, const std::atomic<bool>& stop,
                                  std::mutex& mutex, std::vector<std::int16_t>& queue,
                                  HANDLE queued) {
    const MultimediaTask task;
    const auto append = [&](const std::vector<std::int16_t>& samples) {
        {
            const std::lock_guard lock(mutex);
            queue.insert(queue.end(), samples.begin(), samples.end());
        }
        SetEvent(queued);
        return true;
    };
    const PacketSource source{stream.capture.get(), stream.event.get(), stream.fmt.get(),
                              stream.isFloat, stream.loopback};
    ReadPackets(source, stop, append, [](const PacketCounts&) {});
}

void AudioCapture::MicThread() {
    TraceText(TEXT("[AUDIO] MixMode: MicThread started\n"));
    StreamReadLoop(micStream_, stop_, mixMutex_, micBuffer_, mixWake_.get());
    TraceText(TEXT("[AUDIO] MixMode: MicThread exiting\n"));
    TellSourceEnd();
}

void AudioCapture::LoopbackThread() {
    TraceText(TEXT("[AUDIO] MixMode: LoopbackThread started\n"));
    StreamReadLoop(loopStream_, stop_, mixMutex_, loopBuffer_, mixWake_.get());
    TraceText(TEXT("[AUDIO] MixMode: LoopbackThread exiting\n"));
    TellSourceEnd();
}

bool AudioCapture::SamplesWait() {
    const std::lock_guard lock(mixMutex_);
    return !micBuffer_.empty() || !loopBuffer_.empty();
}

void AudioCapture::MixThread() {
    TraceText(TEXT("[AUDIO] MixMode: MixThread started\n"));
    MultimediaTask task;
    std::vector<std::int16_t> mic; // they trade places with the queues, so capacity is kept
    std::vector<std::int16_t> loopback;
    while (!stop_) {
        // A round begins with the first samples that come, so that its pause lets the other source
        // deliver what belongs to them; in silence there is nothing to wake up for.
        WaitForSingleObject(mixWake_.get(), INFINITE);
        if (!SamplesWait()) {
            continue; // taken by the round before, whose pause they came in: no beginning of one
        }
        if (!stop_) {
            Sleep(kRoundPauseMs);
        }
        if (stop_) {
            break;
        }
        {
            const std::lock_guard lock(mixMutex_);
            mic.swap(micBuffer_);
            loopback.swap(loopBuffer_);
        }
        const auto mixed = MixWithSaturation(mic, loopback);
        mic.clear();
        loopback.clear();
        if (callback_) {
            callback_(reinterpret_cast<const std::uint8_t*>(mixed.data()),
                      static_cast<std::uint32_t>(mixed.size() * sizeof mixed[0]));
        }
    }
    task.Leave();
    TraceText(TEXT("[AUDIO] MixMode: MixThread exiting\n"));
}

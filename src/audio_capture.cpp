#include "audio_capture.h"

#include "debug_trace.h"
#include "thread_start.h"

namespace {

constexpr REFERENCE_TIME kBufferDuration = 10'000'000; // one second
constexpr int kMicStatsRounds = 50;
constexpr int kLoopbackStatsRounds = 1000;

// Walks the steps of opening and remembers the one that failed, with the line of its call.
class StepRecorder {
public:
    bool Failed(OpenStep step, int line, HRESULT result) {
        if (SUCCEEDED(result)) {
            return false;
        }
        result_ = {false, step, result, line};
        return true;
    }
    OpenResult Failure() const { return result_; }
    OpenResult Success() {
        result_.opened = true;
        return result_;
    }

private:
    OpenResult result_;
};

bool FindEndpoint(const WideString& deviceId, EDataFlow flow, ComRef<IMMDevice>& device,
                  StepRecorder& steps) {
    ComRef<IMMDeviceEnumerator> enumerator;
    if (steps.Failed(OpenStep::CreateEnumerator, __LINE__,
                     CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                                      __uuidof(IMMDeviceEnumerator), enumerator.ReceiveVoid()))) {
        return false;
    }
    if (deviceId.empty()) {
        return !steps.Failed(OpenStep::GetDefaultEndpoint, __LINE__,
                             enumerator->GetDefaultAudioEndpoint(flow, eConsole, device.Receive()));
    }
    return !steps.Failed(OpenStep::GetDevice, __LINE__,
                         enumerator->GetDevice(deviceId.c_str(), device.Receive()));
}

// How a failed step stands in the trace. The texts are part of what the trace promises, as the
// people who read traces know them: they do not follow the sources when these change.
const WCHAR* SourceText(OpenStep step) {
    switch (step) {
    case OpenStep::CreateEnumerator:
        return TEXT("CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL, ")
            TEXT("__uuidof(IMMDeviceEnumerator), (void**)&pEnum)");
    case OpenStep::GetDefaultEndpoint:
        return TEXT("pEnum->GetDefaultAudioEndpoint(flow, eConsole, &device_)");
    case OpenStep::GetDevice:
        return TEXT("pEnum->GetDevice(deviceId.c_str(), &device_)");
    case OpenStep::Activate:
        return TEXT("device_->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, ")
            TEXT("(void**)&client_)");
    case OpenStep::GetMixFormat:
        return TEXT("client_->GetMixFormat(&fmt_)");
    case OpenStep::SetEventHandle:
        return TEXT("client_->SetEventHandle(hEvent_)");
    case OpenStep::GetService:
        return TEXT("client_->GetService(__uuidof(IAudioCaptureClient), (void**)&capture_)");
    case OpenStep::Start:
        return TEXT("client_->Start()");
    case OpenStep::Initialize:
        break; // has a line of its own
    }
    return TEXT("");
}

void TraceFailure(const OpenResult& result) {
    const auto code = static_cast<unsigned>(result.result);
    if (result.failedStep == OpenStep::Initialize) {
        AudioTrace(TEXT("[AUDIO]   Initialize FAILED hr=0x%08X\n"), code);
        return;
    }
    AudioTrace(TEXT("[AUDIO] FAILED  hr=0x%08X  at src\\audio_capture:%d  (%s)\n"), code,
               result.line, SourceText(result.failedStep));
}

const WCHAR* IdForTrace(const WideString& deviceId) {
    return deviceId.empty() ? TEXT("(default)") : deviceId.c_str();
}

} // namespace

OpenResult OpenDevice(const WideString& deviceId, bool loopback, const StreamParts& parts) {
    StepRecorder steps;
    if (!FindEndpoint(deviceId, loopback ? eRender : eCapture, parts.device, steps)) {
        return steps.Failure();
    }
    if (steps.Failed(OpenStep::Activate, __LINE__,
                     parts.device->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr,
                                            parts.client.ReceiveVoid()))) {
        return steps.Failure();
    }
    if (steps.Failed(OpenStep::GetMixFormat, __LINE__,
                     parts.client->GetMixFormat(parts.fmt.Receive()))) {
        return steps.Failure();
    }
    parts.isFloat = IsFloatFormat(parts.fmt.get());
    return steps.Success();
}

OpenResult StartStream(bool loopback, const StreamParts& parts) {
    StepRecorder steps;
    const DWORD flags = loopback ? AUDCLNT_STREAMFLAGS_LOOPBACK : AUDCLNT_STREAMFLAGS_EVENTCALLBACK;
    if (steps.Failed(OpenStep::Initialize, __LINE__,
                     parts.client->Initialize(AUDCLNT_SHAREMODE_SHARED, flags, kBufferDuration, 0,
                                              parts.fmt.get(), nullptr))) {
        return steps.Failure();
    }
    if (!loopback) {
        parts.event.Reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
        if (steps.Failed(OpenStep::SetEventHandle, __LINE__,
                         parts.client->SetEventHandle(parts.event.get()))) {
            return steps.Failure();
        }
    }
    if (steps.Failed(
            OpenStep::GetService, __LINE__,
            parts.client->GetService(__uuidof(IAudioCaptureClient), parts.capture.ReceiveVoid()))) {
        return steps.Failure();
    }
    if (steps.Failed(OpenStep::Start, __LINE__, parts.client->Start())) {
        return steps.Failure();
    }
    return steps.Success();
}

void CloseParts(const StreamParts& parts) {
    if (parts.client) {
        parts.client->Stop();
    }
    parts.capture.Reset();
    parts.client.Reset();
    parts.device.Reset();
    parts.fmt.Reset();
    parts.event.Reset(nullptr);
}

AudioCapture::AudioCapture(SourceEndCallback onSourceEnd) : onSourceEnd_(std::move(onSourceEnd)) {
    TraceText(TEXT("[AUDIO] AudioCapture::ctor\n"));
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
}

AudioCapture::~AudioCapture() {
    TraceText(TEXT("[AUDIO] AudioCapture::dtor\n"));
    Stop();
    CoUninitialize();
}

bool AudioCapture::StartMic(const WideString& deviceId, PcmCallback callback) {
    AudioTrace(TEXT("[AUDIO] StartMic  deviceId=%s\n"), IdForTrace(deviceId));
    return StartInternal(deviceId, false, std::move(callback));
}

bool AudioCapture::StartLoopback(const WideString& deviceId, PcmCallback callback) {
    AudioTrace(TEXT("[AUDIO] StartLoopback  deviceId=%s\n"), IdForTrace(deviceId));
    return StartInternal(deviceId, true, std::move(callback));
}

bool AudioCapture::StartInternal(const WideString& deviceId, bool loopback, PcmCallback callback) {
    AudioTrace(TEXT("[AUDIO] StartInternal  loopback=%d\n"), loopback ? 1 : 0);
    Stop();
    const std::lock_guard lock(mutex_);
    OpenResult result = OpenDevice(deviceId, loopback, SingleSource());
    if (result.opened) {
        AudioTrace(TEXT("[AUDIO]   MixFormat: %u Hz, %u ch, %u bit, tag=%u, isFloat=%d\n"),
                   static_cast<unsigned>(fmt_->nSamplesPerSec), unsigned{fmt_->nChannels},
                   unsigned{fmt_->wBitsPerSample}, unsigned{fmt_->wFormatTag}, isFloat_ ? 1 : 0);
        result = StartStream(loopback, SingleSource());
    }
    if (!result.opened) {
        TraceFailure(result);
        if (result.failedStep == OpenStep::Initialize) {
            fmt_.Reset();
            client_.Reset();
            device_.Reset();
        }
        callback = nullptr; // what it holds is free before the caller hears of the failure
        return false;
    }
    callback_ = std::move(callback);
    stop_ = false;
    if (!StartThread(captureThread_, [this, loopback] { CaptureThread(loopback); })) {
        stop_ = true;
        TraceText(TEXT("[AUDIO] FAILED to start the capture thread\n"));
        CloseParts(SingleSource());
        callback_ = nullptr;
        return false;
    }
    TraceText(TEXT("[AUDIO]   Capture thread launched\n"));
    return true;
}

void AudioCapture::CaptureThread(bool loopback) {
    AudioTrace(TEXT("[AUDIO] CaptureThread started  loopback=%d  isFloat=%d\n"), loopback ? 1 : 0,
               isFloat_ ? 1 : 0);
    const MultimediaTask task;
    const auto deliver = [this](const std::vector<std::int16_t>& samples) {
        if (!callback_) {
            return false;
        }
        callback_(reinterpret_cast<const std::uint8_t*>(samples.data()),
                  static_cast<std::uint32_t>(samples.size() * sizeof samples[0]));
        return true;
    };
    const int statsRounds = loopback ? kLoopbackStatsRounds : kMicStatsRounds;
    int rounds = 0;
    const auto traceStats = [&](const PacketCounts& counts) {
        if (++rounds < statsRounds) {
            return;
        }
        rounds = 0;
        AudioTrace(TEXT("[AUDIO]   stats: packets=%llu silent=%llu frames=%llu cbFires=%llu\n"),
                   static_cast<unsigned long long>(counts.packets),
                   static_cast<unsigned long long>(counts.silent),
                   static_cast<unsigned long long>(counts.frames),
                   static_cast<unsigned long long>(counts.cbFires));
    };
    const PacketSource source{capture_.get(), hEvent_.get(), fmt_.get(), isFloat_, loopback};
    const PacketCounts counts = ReadPackets(source, stop_, deliver, traceStats);
    AudioTrace(TEXT("[AUDIO] CaptureThread exiting  cbFires=%llu\n"),
               static_cast<unsigned long long>(counts.cbFires));
    TellSourceEnd();
}

// At the end of a thread that reads.
void AudioCapture::TellSourceEnd() const {
    if (!stop_ && onSourceEnd_) {
        onSourceEnd_();
    }
}

void AudioCapture::Stop() {
    TraceText(TEXT("[AUDIO] Stop() called\n"));
    stop_ = true;
    if (hEvent_) {
        SetEvent(hEvent_.get()); // a microphone thread would wait for up to 200 ms
    }
    SetEvent(mixWake_.get());
    JoinThreads();
    const std::lock_guard lock(mutex_);
    CloseParts(SingleSource());
    CloseStream(micStream_);
    CloseStream(loopStream_);
    micBuffer_.clear(); // no thread is left that could touch them
    loopBuffer_.clear();
    TraceText(TEXT("[AUDIO] Stop() done\n"));
}

void AudioCapture::JoinThreads() {
    for (std::thread* thread : {&captureThread_, &micThread_, &loopThread_, &mixThread_}) {
        if (thread->joinable()) {
            thread->join();
        }
    }
}

StreamParts AudioCapture::SingleSource() {
    return {device_, client_, capture_, hEvent_, fmt_, isFloat_};
}

#include "translation_run.h"

#include "debug_trace.h"

#include <utility>

namespace {

constexpr DWORD kFlagPollMs = 60;

// The payload of a message goes with it, or is freed here when the window has gone.
template <typename Payload>
void PostOwned(HWND window, UINT message, std::unique_ptr<Payload> payload) {
    if (PostMessageW(window, message, 0, reinterpret_cast<LPARAM>(payload.get())) != FALSE) {
        static_cast<void>(payload.release()); // the receiver's now
    }
}

} // namespace

bool StartSources(AudioCapture& capture, bool useMic, bool useLoopback, const ConfigData& config,
                  PcmCallback callback) {
    if (useMic && useLoopback) {
        return capture.StartMixed(config.mic_device.id, config.loopback_device.id,
                                  std::move(callback));
    }
    if (useMic) {
        return capture.StartMic(config.mic_device.id, std::move(callback));
    }
    if (useLoopback) {
        return capture.StartLoopback(config.loopback_device.id, std::move(callback));
    }
    return true;
}

void PostResult(HWND window, const TranslationResult& result) {
    PostOwned(window, kMsgResult, std::make_unique<TranslationResult>(result));
}

// ---- What the threads share ---------------------------------------------------------------------

TranslationRun::TranslationRun(HWND window, std::shared_ptr<AudioCapture> capture)
    : window_(window), capture_(std::move(capture)) {}

void TranslationRun::Post(UINT message) {
    const std::lock_guard lock(postMutex_);
    if (!superseded_) {
        PostMessageW(window_, message, 0, 0);
    }
}

void TranslationRun::PostError(const WideString& text) {
    const std::lock_guard lock(postMutex_);
    if (!superseded_) {
        PostOwned(window_, kMsgError, std::make_unique<WideString>(text));
    }
}

void TranslationRun::ServeBy(const std::shared_ptr<AzureTranslator>& translator) {
    bool isLate = false;
    {
        const std::lock_guard lock(postMutex_);
        translator_ = translator;
        isLate = superseded_;
    }
    if (isLate) {
        translator->GiveUp();
    }
}

void TranslationRun::Supersede() {
    std::shared_ptr<AzureTranslator> translator;
    {
        const std::lock_guard lock(postMutex_);
        superseded_ = true;
        translator = translator_.lock();
    }
    if (translator != nullptr) {
        translator->GiveUp();
    }
    MSG late;
    while (PeekMessageW(&late, window_, kMsgError, kMsgStopped, PM_REMOVE) != FALSE) {
        if (late.message == kMsgError) {
            TakeText(late.lParam);
        }
    }
}

void TranslationRun::CloseCapture() {
    const std::lock_guard lock(captureMutex_);
    capture_->Stop();
    capture_.reset(); // whose callback may hold the translator, which holds this run
}

// ---- The worker ---------------------------------------------------------------------------------

namespace {

void FailWithoutSession(const WorkerContext& context) {
    WideString reason;
    const bool keyOk = context.translator->CheckKey(reason);
    context.run->active = false;
    const WideString text = keyOk ? WideString(TEXT("Failed to connect to server")) : reason;
    DebugTrace(TEXT("[WORKER] Start() failed, keyOk=%d reason=%s\n"), keyOk ? 1 : 0, text.c_str());
    context.run->PostError(text);
}

bool OpenCapture(const WorkerContext& context) {
    return StartSources(
        *context.capture, context.useMic, context.useLoopback, context.config,
        [&translator = context.translator](const std::uint8_t* data, std::uint32_t bytes) {
            translator->PushAudio(data, bytes);
        });
}

} // namespace

void RunWorker(const WorkerContext& context) {
    DebugTrace(TEXT("[WORKER] thread started\n"));
    context.run->ServeBy(context.translator);
    if (!context.translator->Start()) {
        FailWithoutSession(context);
        return;
    }
    if (!OpenCapture(context)) {
        context.translator->Stop();
        context.run->active = false;
        DebugTrace(TEXT("[WORKER] audio open failed\n"));
        context.run->PostError(TEXT("Failed to open audio device"));
        return;
    }
    DebugTrace(TEXT("[WORKER] posting kMsgStarted\n"));
    context.run->Post(kMsgStarted);
    while (context.run->active) {
        Sleep(kFlagPollMs);
    }
    DebugTrace(TEXT("[WORKER] running=false, stopping cap and trans\n"));
    context.run->CloseCapture();
    context.translator->Stop();
    DebugTrace(TEXT("[WORKER] posting kMsgStopped\n"));
    context.run->Post(kMsgStopped);
}

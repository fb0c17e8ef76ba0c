#include "translation_run.h"

#include "debug_trace.h"

#include <utility>

namespace {

// The payload of a message goes with it, or is freed here when the window has gone.
template <typename Payload>
void PostOwned(HWND window, UINT message, WPARAM wParam, std::unique_ptr<Payload> payload) {
    if (PostMessageW(window, message, wParam, reinterpret_cast<LPARAM>(payload.get())) != FALSE) {
        static_cast<void>(payload.release()); // the receiver's now
    }
}

} // namespace

void PostResult(HWND window, const TranslationResult& result, bool written) {
    PostOwned(window, kMsgResult, written ? 1 : 0, std::make_unique<TranslationResult>(result));
}

// ---- What the threads share ---------------------------------------------------------------------

void TranslationRun::End() {
    const std::lock_guard lock(mutex_);
    active_ = false;
    changed_.notify_all();
}

bool TranslationRun::IsActive() const {
    const std::lock_guard lock(mutex_);
    return active_;
}

void TranslationRun::Post(UINT message, WPARAM wParam, LPARAM lParam) const {
    if (!superseded_) {
        PostMessageW(window_, message, wParam, lParam);
    }
}

void TranslationRun::PostStarted() {
    const std::lock_guard lock(mutex_);
    if (active_) {
        Post(kMsgStarted);
    }
}

void TranslationRun::PostStopped() {
    const std::lock_guard lock(mutex_);
    Post(kMsgStopped);
}

void TranslationRun::Fail(const WideString& text) {
    const std::lock_guard lock(mutex_);
    active_ = false;
    changed_.notify_all();
    if (!superseded_) {
        PostOwned(window_, kMsgError, 0, std::make_unique<WideString>(text));
    }
}

void TranslationRun::PostSources(const SourceChoice& choice, bool open) {
    const std::lock_guard lock(mutex_);
    if (active_) {
        Post(kMsgSources, choice.number, open ? 1 : 0);
    }
}

void TranslationRun::ServeBy(const std::shared_ptr<AzureTranslator>& translator) {
    bool isLate = false;
    {
        const std::lock_guard lock(mutex_);
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
        const std::lock_guard lock(mutex_);
        active_ = false;
        superseded_ = true;
        translator = translator_.lock();
        changed_.notify_all();
    }
    if (translator != nullptr) {
        translator->GiveUp();
    }
    MSG late;
    while (PeekMessageW(&late, window_, kMsgError, kMsgSources, PM_REMOVE) != FALSE) {
        if (late.message == kMsgError) {
            TakeText(late.lParam);
        }
    }
}

void TranslationRun::Choose(const SourceChoice& choice) {
    const std::lock_guard lock(mutex_);
    choice_ = choice;
    changed_.notify_all();
}

bool TranslationRun::WaitForChoice() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !active_ || choice_.has_value(); });
    return active_;
}

std::optional<SourceChoice> TranslationRun::TakeChoice() {
    const std::lock_guard lock(mutex_);
    return std::exchange(choice_, std::nullopt);
}

// ---- The worker ---------------------------------------------------------------------------------

namespace {

void FailWithoutSession(const WorkerContext& context) {
    WideString reason;
    const bool keyOk = context.translator->CheckKey(reason);
    const WideString text = keyOk ? WideString(TEXT("Failed to connect to server")) : reason;
    DebugTrace(TEXT("[WORKER] Start() failed, keyOk=%d reason=%s\n"), keyOk ? 1 : 0, text.c_str());
    context.run->Fail(text);
}

// The reason is told unless the run has ended for another one, which is told already.
void FailWithoutSound(const WorkerContext& context) {
    context.translator->Stop();
    DebugTrace(TEXT("[WORKER] audio open failed\n"));
    if (context.run->IsActive()) {
        context.run->Fail(TEXT("Failed to open audio device"));
    } else {
        context.run->PostStopped();
    }
}

// Not yet open.
std::unique_ptr<AudioCapture> MakeCapture(const WorkerContext& context,
                                          const SourceChoice& sources) {
    return std::make_unique<AudioCapture>(
        [run = context.run, sources] { run->PostSources(sources, false); });
}

// With neither source there is nothing to open, which is no failure.
bool OpenSources(AudioCapture& capture, const SourceChoice& sources, AzureTranslator& translator) {
    const auto push = [&translator](const std::uint8_t* data, std::uint32_t bytes) {
        translator.PushAudio(data, bytes);
    };
    if (sources.useMic && sources.useLoopback) {
        return capture.StartMixed(sources.micId, sources.loopbackId, push);
    }
    if (sources.useMic) {
        return capture.StartMic(sources.micId, push);
    }
    if (sources.useLoopback) {
        return capture.StartLoopback(sources.loopbackId, push);
    }
    return true;
}

// Serves the choices that are made until the run is to end, `capture` being what it began with.
// Each is opened anew, also one that is open already: it may be there to bring a device back.
void SwitchSources(const WorkerContext& context, std::unique_ptr<AudioCapture> capture) {
    while (context.run->WaitForChoice()) {
        capture.reset(); // which ends its callbacks, and may take a while: the last choice counts
        if (const auto choice = context.run->TakeChoice()) {
            capture = MakeCapture(context, *choice);
            const bool open = OpenSources(*capture, *choice, *context.translator);
            context.run->PostSources(*choice, open);
        }
    }
    DebugTrace(TEXT("[WORKER] running=false, stopping cap and trans\n"));
}

} // namespace

void RunWorker(const WorkerContext& context) {
    DebugTrace(TEXT("[WORKER] thread started\n"));
    context.run->ServeBy(context.translator);
    if (!context.translator->Start()) {
        FailWithoutSession(context);
        return;
    }
    auto capture = MakeCapture(context, context.sources);
    if (context.run->IsActive()) { // the service may have ended the session by now
        if (!OpenSources(*capture, context.sources, *context.translator)) {
            FailWithoutSound(context);
            return;
        }
        DebugTrace(TEXT("[WORKER] posting kMsgStarted\n"));
        context.run->PostStarted();
    }
    SwitchSources(context, std::move(capture));
    context.translator->Stop();
    DebugTrace(TEXT("[WORKER] posting kMsgStopped\n"));
    context.run->PostStopped();
}

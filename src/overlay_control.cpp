// When a run begins and ends, which sound feeds it, and what the status line says at every step.
#include "overlay_window.h"

#include "debug_trace.h"
#include "stored_values.h"
#include "thread_start.h"

void OverlayWindow::StartTranslation() {
    DebugTrace(TEXT("[UI] StartTranslation called, isRunning_=%d\n"), isRunning_ ? 1 : 0);
    const ConfigData config = popup_->BuildConfig();
    if (config.access_key.empty()) {
        SetStatus(TEXT("Please enter Access Key in config"), false);
        popup_->Show();
        return;
    }
    if (runFlag_) {
        *runFlag_ = false; // a worker that still lives ends by itself
        run_->Supersede();
    }
    if (worker_.joinable()) {
        worker_.detach();
    }
    lastError_.clear();
    if (newLogPending_) {
        OpenTranscript(config.lang_a, config.lang_b);
        newLogPending_ = false;
    }
    const auto translator = std::make_shared<AzureTranslator>();
    const auto capture = std::make_shared<AudioCapture>();
    const auto run = std::make_shared<TranslationRun>(hwnd_, capture);
    translator_ = translator;
    capture_ = capture;
    run_ = run;
    runFlag_ = {run, &run->active};
    translator->Configure(
        config.access_key, config.lang_a, config.lang_a_tgt, config.lang_b, config.lang_b_tgt,
        [window = hwnd_](const TranslationResult& result) { PostResult(window, result); },
        [run](const WideString& text) {
            run->active = false;
            run->PostError(text);
        });
    auto context = std::make_unique<WorkerContext>(
        WorkerContext{hwnd_, translator, capture, run, config, useMic_, useLoopback_});
    if (StartThread(worker_, [context = std::move(context)] { RunWorker(*context); })) {
        SetStatus(TEXT("Connecting to server …"), false);
    } else {
        run->active = false;
        OnTranslationError(TEXT("Failed to start a thread"));
    }
    popup_->Hide();
}

// The run says when it has ended.
void OverlayWindow::StopTranslation() {
    if (runFlag_) {
        *runFlag_ = false;
    }
    SetStatus(TEXT("Pausing …"), false);
}

void OverlayWindow::ToggleSource(bool& source, const WCHAR* storedName) {
    source = !source;
    WriteStoredNumber(configKey_, storedName, source ? 1 : 0);
    if (isRunning_) {
        RestartTranslation();
    } else {
        Repaint(); // the choice takes effect at the next start
    }
}

// Changes the source of a run; its session stays as it is.
void OverlayWindow::RestartTranslation() {
    Repaint();
    if (!isRunning_ || capture_ == nullptr) {
        return;
    }
    const ConfigData config = popup_->BuildConfig();
    const auto capture = std::make_shared<AudioCapture>();
    const bool started = run_->SwitchCapture(capture, [&] {
        capture_ = capture;
        return StartSources(
            *capture, useMic_, useLoopback_, config,
            [translator = translator_](const std::uint8_t* data, std::uint32_t bytes) {
                if (translator != nullptr) {
                    translator->PushAudio(data, bytes);
                }
            });
    });
    if (!started) {
        SetStatus(TEXT("Audio switch failed — check device"), false);
    } else if (useMic_ || useLoopback_) {
        status_.clear();
    } else {
        SetStatus(TEXT("Audio paused — enable a source above"), false);
    }
    Repaint();
}

void OverlayWindow::OnTranslationStarted() {
    DebugTrace(TEXT("[UI] OnTranslationStarted isRunning_=true\n"));
    isRunning_ = true;
    status_.clear();
    statusHeight_ = 0;
    if (!useMic_ && !useLoopback_) {
        SetStatus(TEXT("Audio paused — enable a source above"), false);
    }
    SetLiveIndicator(true);
    popup_->SetRunning(true);
    Repaint();
}

void OverlayWindow::OnTranslationStopped() {
    DebugTrace(TEXT("[UI] OnTranslationStopped isRunning_=false\n"));
    isRunning_ = false;
    SetLiveIndicator(false);
    popup_->SetRunning(false);
    if (lastError_.empty()) {
        SetStatus(TEXT("Paused"), false);
    }
    Repaint();
}

void OverlayWindow::OnTranslationError(const WideString& raw) {
    DebugTrace(TEXT("[UI] OnTranslationError raw=%s\n"), raw.c_str());
    isRunning_ = false;
    lastError_ = MapServiceError(raw);
    SetStatus(lastError_, true);
    SetLiveIndicator(false);
    popup_->SetRunning(false);
    if (raw.find(TEXT("quota_exceeded")) != WideString::npos) {
        popup_->Show();
    }
    Repaint();
}

void OverlayWindow::SetLiveIndicator(bool lit) {
    if (liveIndicator_ != lit) {
        liveIndicator_ = lit;
        Repaint();
    }
}

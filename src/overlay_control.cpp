// When a run begins and ends, which sound feeds it, and what the status line says at every step.
#include "debug_trace.h"
#include "overlay_window.h"
#include "stored_values.h"
#include "thread_start.h"

void OverlayWindow::StartTranslation() {
    DebugTrace(TEXT("[UI] StartTranslation called, isRunning_=%d\n"), isRunning_ ? 1 : 0);
    popup_->FindMissingDevices();
    const ConfigData config = popup_->BuildConfig();
    if (config.access_key.empty()) {
        SetStatus(TEXT("Please enter Access Key in config"), false);
        popup_->Show();
        return;
    }
    if (run_ != nullptr) {
        run_->Supersede(); // a worker that still lives ends by itself
    }
    if (worker_.joinable()) {
        worker_.detach();
    }
    lastError_.clear();
    if (newLogPending_) {
        transcript_->Open(config.lang_a, config.lang_b);
        newLogPending_ = false;
    }
    const auto translator = std::make_shared<AzureTranslator>();
    const auto run = std::make_shared<TranslationRun>(hwnd_);
    translator_ = translator;
    run_ = run;
    sources_ = ChosenSources(config);
    sourceLost_ = false;
    translator->Configure(
        config.access_key, config.lang_a, config.lang_a_tgt, config.lang_b, config.lang_b_tgt,
        [window = hwnd_, transcript = transcript_](const TranslationResult& result) {
            if (result.isFinal) {
                transcript->Append(result.original, result.translated);
            }
            PostResult(window, result, true);
        },
        [run](const WideString& text) { run->Fail(text); });
    auto context = std::make_unique<WorkerContext>(WorkerContext{translator, run, sources_});
    if (StartThread(worker_, [context = std::move(context)] { RunWorker(*context); })) {
        SetStatus(TEXT("Connecting to server …"), false);
    } else {
        run->End();
        OnTranslationError(TEXT("Failed to start a thread"));
    }
    popup_->Hide();
}

// The run says when it has ended.
void OverlayWindow::StopTranslation() {
    if (run_ != nullptr) {
        run_->End();
    }
    SetStatus(TEXT("Pausing …"), false);
}

void OverlayWindow::ToggleSource(bool& source, const WCHAR* storedName) {
    source = !source;
    WriteStoredNumber(configKey_.get(), storedName, source ? 1 : 0);
    if (isRunning_) {
        RestartTranslation();
    } else {
        Repaint(); // the choice takes effect at the next start
    }
}

// What is chosen now, as the first choice of a run.
SourceChoice OverlayWindow::ChosenSources(const ConfigData& config) const {
    return {useMic_, useLoopback_, config.mic_device.id, config.loopback_device.id, 0};
}

// Changes the sources of a run; its session stays as it is. The worker opens and closes them and
// tells by kMsgSources how it went: a device can take seconds.
void OverlayWindow::RestartTranslation() {
    Repaint();
    if (!isRunning_ || run_ == nullptr) {
        return;
    }
    popup_->FindMissingDevices();
    const UINT number = sources_.number + 1;
    sources_ = ChosenSources(popup_->BuildConfig());
    sources_.number = number;
    sourceLost_ = false;
    run_->Choose(sources_);
}

// What is told of a choice that has been changed meanwhile says nothing of the sources, and what a
// run that is ending tells may not take the place of how it ended. A source can end before the run
// is known to be up, and before its opening is told.
void OverlayWindow::OnSources(UINT number, bool open) {
    if (run_ == nullptr || !run_->IsActive() || number != sources_.number) {
        return;
    }
    sourceLost_ = sourceLost_ || !open;
    if (isRunning_) {
        ShowSourceStatus();
        Repaint();
    }
}

void OverlayWindow::ShowSourceStatus() {
    if (sourceLost_) {
        SetStatus(TEXT("Audio switch failed — check device"), false);
    } else if (useMic_ || useLoopback_) {
        status_.clear();
        statusHeight_ = 0;
    } else {
        SetStatus(TEXT("Audio paused — enable a source above"), false);
    }
}

// The run began with the sources as they stood when it was asked for.
void OverlayWindow::OnTranslationStarted() {
    // scripts/ wait for this line.
    DebugTrace(TEXT("[UI] OnTranslationStarted isRunning_=true\n"));
    isRunning_ = true;
    ShowSourceStatus();
    SetLiveIndicator(true);
    popup_->SetRunning(true);
    if (useMic_ != sources_.useMic || useLoopback_ != sources_.useLoopback) {
        RestartTranslation();
    }
    Repaint();
}

void OverlayWindow::OnTranslationStopped() {
    // scripts/ wait for this line.
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

// One translation run: what its threads share with each other and with the window. Knows the
// capture, the translator and the window's messages; nothing of what the window shows.
#pragma once

#include "audio_capture.h"
#include "azure_translator.h"
#include "languages.h"
#include "wide_text.h"

#include <windows.h>

#include <atomic>
#include <memory>
#include <mutex>

// Into the window, from whichever thread. The receiver owns what lParam points at; wParam is 0.
inline constexpr UINT kMsgResult = WM_APP + 10;  // a heap TranslationResult
inline constexpr UINT kMsgError = WM_APP + 11;   // a heap WideString, the raw failure text
inline constexpr UINT kMsgStarted = WM_APP + 12; // lParam is 0
inline constexpr UINT kMsgStopped = WM_APP + 13; // lParam is 0

// Opens what `useMic` and `useLoopback` ask for. With neither there is nothing to open, which is no
// failure.
bool StartSources(AudioCapture& capture, bool useMic, bool useLoopback, const ConfigData& config,
                  PcmCallback callback);

// Takes over what the lParam of such a message points at; null for an lParam of 0.
inline std::unique_ptr<TranslationResult> TakeResult(LPARAM lParam) {
    return std::unique_ptr<TranslationResult>(reinterpret_cast<TranslationResult*>(lParam));
}
inline std::unique_ptr<WideString> TakeText(LPARAM lParam) {
    return std::unique_ptr<WideString>(reinterpret_cast<WideString*>(lParam));
}

// Posts a copy of a result to the window.
void PostResult(HWND window, const TranslationResult& result);

// The state that a run's threads share. Any thread may call any operation but Supersede, which is
// the UI thread's.
class TranslationRun {
public:
    TranslationRun(HWND window, std::shared_ptr<AudioCapture> capture);

    // Falls once and never rises again; whoever wants the run to end lets it fall.
    std::atomic<bool> active{true};

    // Posts a message about the run's state, unless the run has been superseded.
    void Post(UINT message);
    void PostError(const WideString& text);

    // The translator that serves this run. Not kept alive: its callbacks hold the run.
    void ServeBy(const std::shared_ptr<AzureTranslator>& translator);

    // Another run takes this one's place: from when this returns, no more messages of its state are
    // posted, and those that wait in the window's queue are gone. Its results still come, but it
    // waits for the service no longer.
    void Supersede();

    // Ends the capture in use and starts `capture` in its place by `start`, which tells whether it
    // succeeded. True, with nothing started, when the run has already closed its capture: a run
    // ends with none open. The worker waits here while a device is being opened, and a switch waits
    // while the worker closes one.
    template <typename Start>
    bool SwitchCapture(const std::shared_ptr<AudioCapture>& capture, const Start& start) {
        const std::lock_guard lock(captureMutex_);
        if (capture_ == nullptr) {
            return true;
        }
        capture_->Stop();
        capture_ = capture;
        return start();
    }

    // Ends the capture in use, for good. Called once.
    void CloseCapture();

private:
    const HWND window_;
    std::mutex postMutex_; // guards the next two; held for one post, so that none can slip past it
    bool superseded_ = false;
    std::weak_ptr<AzureTranslator> translator_;
    std::mutex captureMutex_; // guards capture_, also against two callers of its operations
    std::shared_ptr<AudioCapture> capture_; // in use; null once closed
};

// What the worker thread of a run owns.
struct WorkerContext {
    HWND window;
    std::shared_ptr<AzureTranslator> translator;
    std::shared_ptr<AudioCapture> capture; // the first one; a switch of the source may replace it
    std::shared_ptr<TranslationRun> run;
    ConfigData config;
    bool useMic; // as they stood when the run was started
    bool useLoopback;
};

// The body of the worker thread: opens the session and the capture, waits for the run's flag to
// fall, and closes both.
void RunWorker(const WorkerContext& context);

// One translation run: what its threads share with each other and with the window. Knows the
// capture, the translator and the window's messages; nothing of what the window shows.
#pragma once

#include "audio_capture.h"
#include "azure_translator.h"
#include "languages.h"
#include "wide_text.h"

#include <windows.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

// Into the window, from whichever thread. The receiver owns what lParam points at; wParam is 0
// where nothing is said of it.
inline constexpr UINT kMsgResult = WM_APP + 10;  // a heap TranslationResult; wParam: see PostResult
inline constexpr UINT kMsgError = WM_APP + 11;   // a heap WideString, the raw failure text
inline constexpr UINT kMsgStarted = WM_APP + 12; // lParam is 0
inline constexpr UINT kMsgStopped = WM_APP + 13; // lParam is 0
// What has become of the sources: wParam is the number of the choice, lParam 1 when they are open,
// 0 when they could not be opened or when one of them has ended.
inline constexpr UINT kMsgSources = WM_APP + 14;

// Which sources a run listens to.
struct SourceChoice {
    bool useMic = false;
    bool useLoopback = false;
    WideString micId; // of the devices; empty means the system's default
    WideString loopbackId;
    UINT number = 0; // counts the choices of a run, from 0
};

// Takes over what the lParam of such a message points at; null for an lParam of 0.
inline std::unique_ptr<TranslationResult> TakeResult(LPARAM lParam) {
    return std::unique_ptr<TranslationResult>(reinterpret_cast<TranslationResult*>(lParam));
}
inline std::unique_ptr<WideString> TakeText(LPARAM lParam) {
    return std::unique_ptr<WideString>(reinterpret_cast<WideString*>(lParam));
}

// Posts a copy of a result to the window. `written`, which goes in wParam: it is in the transcript,
// if it belongs there; else the receiver writes it.
void PostResult(HWND window, const TranslationResult& result, bool written = false);

// The state that a run's threads share. Any thread may call any operation but those that are said
// to be the UI thread's or the worker's. None of them waits for the network or for a device, but
// the worker's wait for a choice.
class TranslationRun {
public:
    explicit TranslationRun(HWND window) : window_(window) {}

    // Asks the run to end, for good.
    void End();
    bool IsActive() const;

    // Posts that the run is up, unless it has been asked to end.
    void PostStarted();
    void PostStopped();
    // Ends the run and posts why.
    void Fail(const WideString& text);
    // Posts what has become of a choice, while the run is active.
    void PostSources(const SourceChoice& choice, bool open);

    // The translator that serves this run. Not kept alive: its callbacks hold the run.
    void ServeBy(const std::shared_ptr<AzureTranslator>& translator);

    // UI thread. Another run takes this one's place: ends it, and from when this returns, no more
    // messages of its state are posted, and those that wait in the window's queue are gone. Its
    // results still come, but it waits for the service no longer.
    void Supersede();

    // UI thread. The sources to listen to from now on. A choice that the worker has not come to
    // yet is forgotten for the newer one.
    void Choose(const SourceChoice& choice);
    // Worker. Waits until there is a choice; false when the run is to end.
    bool WaitForChoice();
    // Worker. The choice that waits; nothing when there is none.
    std::optional<SourceChoice> TakeChoice();

private:
    void Post(UINT message, WPARAM wParam = 0, LPARAM lParam = 0) const; // under the lock

    const HWND window_;
    mutable std::mutex mutex_; // guards all below; held for each post, so that none can slip past
    bool active_ = true;       // falls once and never rises again
    bool superseded_ = false;
    std::weak_ptr<AzureTranslator> translator_;
    std::optional<SourceChoice> choice_; // asked for, not yet taken by the worker
    std::condition_variable changed_;    // active_ has fallen, or there is a choice
};

// What the worker thread of a run owns.
struct WorkerContext {
    std::shared_ptr<AzureTranslator> translator;
    std::shared_ptr<TranslationRun> run;
    SourceChoice sources; // as they stood when the run was started
};

// The body of the worker thread: opens the session and the sources, switches these when another
// choice is made, and closes both when the run is to end. All captures of a run are this thread's:
// one at a time, each closed before the next one is opened, and none left open at the end.
void RunWorker(const WorkerContext& context);

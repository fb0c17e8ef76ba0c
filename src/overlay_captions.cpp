// The overlay's memory of what was said, and the words of its status line.
#include "overlay_window.h"

#include <array>
#include <chrono>

namespace {

constexpr std::chrono::milliseconds kLongestTaking{20}; // of results, without a picture

} // namespace

WideString MapServiceError(const WideString& raw) {
    struct Row {
        const WCHAR* word;
        const WCHAR* text;
    };
    // The first word that is found anywhere decides.
    constexpr std::array<Row, 5> kRows = {{
        {TEXT("quota_exceeded"), TEXT("⚠ Out of quota")},
        {TEXT("key_not_found"), TEXT("⚠ Invalid key")},
        {TEXT("key_disabled"), TEXT("⚠ Key disabled")},
        {TEXT("session_not_found"), TEXT("Session expired — please restart")},
        {TEXT("internal_error"), TEXT("Server internal error")},
    }};
    constexpr std::size_t kLongest = 80; // 16-bit units
    for (const Row& row : kRows) {
        if (raw.find(row.word) != WideString::npos) {
            return row.text;
        }
    }
    return raw.size() > kLongest ? raw.substr(0, kLongest) + TEXT("…") : raw;
}

// Takes the first result and those that wait after it, for a limited time: a picture of each would
// hold up every later message, and taking all of a flood would hold up the user's input.
void OverlayWindow::OnResults(WPARAM written, LPARAM first) {
    const auto end = std::chrono::steady_clock::now() + kLongestTaking;
    MSG next{};
    next.message = kMsgResult;
    next.wParam = written;
    next.lParam = first;
    do {
        if (next.message == WM_QUIT) { // which comes whatever one asks for
            PostQuitMessage(static_cast<int>(next.wParam));
            return;
        }
        if (const auto result = TakeResult(next.lParam)) {
            OnResult(*result, next.wParam != 0);
        }
    } while (std::chrono::steady_clock::now() < end &&
             PeekMessageW(&next, hwnd_, kMsgResult, kMsgResult, PM_REMOVE) != FALSE);
    Repaint();
}

// A result is kept whatever the run's state is: it may come after a stop or a failure.
void OverlayWindow::OnResult(const TranslationResult& result, bool written) {
    if (!result.isFinal) {
        AddPendingCaption(result.original, result.translated);
        return;
    }
    AddFinalCaption(result.original, result.translated);
    if (!written) {
        transcript_->Append(result.original, result.translated);
    }
}

void OverlayWindow::AddPendingCaption(const WideString& original, const WideString& translated) {
    PutCaption(original, translated, true);
}

void OverlayWindow::AddFinalCaption(const WideString& original, const WideString& translated) {
    PutCaption(original, translated, false);
}

// Replaces a pending entry, else appends one.
void OverlayWindow::PutCaption(const WideString& original, const WideString& translated,
                               bool pending) {
    const std::lock_guard lock(captionsMutex_);
    if (captions_.empty() || !captions_.back().pending) {
        captions_.emplace_back();
    }
    captions_.back() = {original, translated, pending};
    cardHeights_.ChangedFrom(captions_.size() - 1);
}

void OverlayWindow::ClearCaptions() {
    {
        const std::lock_guard lock(captionsMutex_);
        captions_.clear();
        cardHeights_.ChangedFrom(0);
    }
    scrollOffset_ = 0;
    scrolledUp_ = false;
    newLogPending_ = true; // results go on into the open transcript until the next start
    SetStatus(TEXT("Cleared"), false);
    Repaint();
}

void OverlayWindow::SetStatus(const WideString& text, bool isError) {
    statusIsError_ = isError;
    status_ = text;
    Repaint();
}

// The messages posted to the windows of this process. Knows windows by their handles only.
#pragma once

#include <windows.h>

#include <atomic>
#include <deque>
#include <mutex>
#include <optional>
#include <unordered_set>

class QAbstractEventDispatcher;

namespace windowing {

// What GetMessageW and PeekMessageW ask for. Two zeros mean every message, a null window every one.
struct MessageFilter {
    HWND window = nullptr;
    UINT first = 0;
    UINT last = 0;

    bool Takes(HWND itsWindow, UINT message) const {
        return (window == nullptr || window == itsWindow) &&
               ((first == 0 && last == 0) || (message >= first && message <= last));
    }
};

// Any thread posts; all else is called by the thread that has the windows.
class MessageQueue {
public:
    // What the reader sleeps in; it lives as long as the process.
    void WakeThrough(QAbstractEventDispatcher* sleeper) { sleeper_ = sleeper; }

    // From when to when messages are taken for a window; what is left then is dropped.
    void Admit(HWND window);
    void Dismiss(HWND window);

    bool Post(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    std::optional<MSG> Take(const MessageFilter& filter, bool remove);

private:
    std::atomic<QAbstractEventDispatcher*> sleeper_{nullptr};
    std::mutex mutex_; // over all below; nothing is called under it
    std::deque<MSG> messages_;
    std::unordered_set<HWND> windows_;
    bool readerMaySleep_ = true; // it found nothing when it looked last, and was not woken since
};

MessageQueue& Queue();

// Milliseconds since some moment, as messages carry it.
DWORD MessageTimeMs();

} // namespace windowing

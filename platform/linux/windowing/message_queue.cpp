#include "windowing/message_queue.h"

#include "process/never_destroyed.h"

#include <QAbstractEventDispatcher>

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

namespace windowing {

void MessageQueue::Admit(HWND window) {
    const std::lock_guard lock(mutex_);
    windows_.insert(window);
}

void MessageQueue::Dismiss(HWND window) {
    const std::lock_guard lock(mutex_);
    windows_.erase(window);
    std::erase_if(messages_, [&](const MSG& message) { return message.hwnd == window; });
}

bool MessageQueue::Post(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    const MSG posted{window, message, wParam, lParam, MessageTimeMs(), {}};
    bool wake = false;
    {
        const std::lock_guard lock(mutex_);
        if (!windows_.contains(window)) {
            return false;
        }
        messages_.push_back(posted);
        // The reader looks here before it sleeps, so one waking does for all that follow.
        wake = std::exchange(readerMaySleep_, false);
    }
    QAbstractEventDispatcher* sleeper = sleeper_;
    if (wake && sleeper != nullptr) {
        sleeper->wakeUp();
    }
    return true;
}

std::optional<MSG> MessageQueue::Take(const MessageFilter& filter, bool remove) {
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(messages_.begin(), messages_.end(), [&](const MSG& message) {
        return filter.Takes(message.hwnd, message.message);
    });
    if (found == messages_.end()) {
        readerMaySleep_ = true;
        return std::nullopt;
    }
    const MSG message = *found;
    if (remove) {
        messages_.erase(found);
    }
    return message;
}

MessageQueue& Queue() {
    static MessageQueue& queue = process::NeverDestroyed<MessageQueue>();
    return queue;
}

DWORD MessageTimeMs() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<DWORD>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

} // namespace windowing

BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    return windowing::Queue().Post(window, message, wParam, lParam) ? TRUE : FALSE;
}

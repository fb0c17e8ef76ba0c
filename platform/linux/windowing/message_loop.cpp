#include "windowing/message_loop.h"

#include "application/application.h"
#include "process/never_destroyed.h"
#include "windowing/input_queue.h"
#include "windowing/message_queue.h"
#include "windowing/painting_cycle.h"
#include "windowing/timers.h"
#include "windowing/window_table.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <memory>
#include <optional>

namespace windowing {

namespace {

// So that a flood of posted messages cannot shut out what the user does.
constexpr int kPostedBetweenInput = 32;

struct Loop {
    std::optional<int> exitCode; // PostQuitMessage has been called
    int postedSinceInput = 0;
    QTimer alarm; // ends the sleep when the next timer is due
    std::optional<Timers::Clock::time_point> alarmAt;
};

// Never destroyed: its alarm would meet Qt's statics gone.
Loop& TheLoop() {
    static Loop& loop = process::NeverDestroyed<Loop>();
    return loop;
}

void ServeQt() {
    QCoreApplication::processEvents();
}

// Whatever one asks for: the quit message is for everybody.
std::optional<MSG> TakeQuit(bool remove) {
    auto& exitCode = TheLoop().exitCode;
    if (!exitCode.has_value()) {
        return std::nullopt;
    }
    const MSG quit{nullptr, WM_QUIT, static_cast<WPARAM>(*exitCode), 0, MessageTimeMs(), {}};
    if (remove) {
        exitCode.reset();
    }
    return quit;
}

std::optional<MSG> TakePaint(const MessageFilter& filter) {
    const HWND window = FirstToPaint(filter);
    return window == nullptr ? std::nullopt
                             : std::optional(MSG{window, WM_PAINT, 0, 0, MessageTimeMs(), {}});
}

std::optional<MSG> TakeInputAfterManyPosted(const MessageFilter& filter, bool remove) {
    if (TheLoop().postedSinceInput < kPostedBetweenInput) {
        return std::nullopt;
    }
    TheLoop().postedSinceInput = 0;
    ServeQt();
    return TakeInput(filter, remove);
}

std::optional<MSG> TakeWaiting(const MessageFilter& filter, bool remove) {
    if (auto input = TakeInputAfterManyPosted(filter, remove)) {
        return input;
    }
    if (auto posted = Queue().Take(filter, remove)) {
        ++TheLoop().postedSinceInput;
        return posted;
    }
    TheLoop().postedSinceInput = 0;
    if (auto quit = TakeQuit(remove)) {
        return quit;
    }
    return TakeInput(filter, remove);
}

std::optional<MSG> TakeReady(const MessageFilter& filter, bool remove) {
    if (auto waiting = TakeWaiting(filter, remove)) {
        return waiting;
    }
    ServeQt();
    if (auto waiting = TakeWaiting(filter, remove)) {
        return waiting;
    }
    if (auto due = AllTimers().TakeDue(filter, remove, Timers::Clock::now())) {
        return due;
    }
    return TakePaint(filter);
}

void SetAlarm() {
    Loop& loop = TheLoop();
    const auto due = AllTimers().NextDue();
    if (!due.has_value()) {
        loop.alarm.stop();
        loop.alarmAt.reset();
        return;
    }
    if (loop.alarm.isActive() && loop.alarmAt == due) {
        return;
    }
    using Milliseconds = std::chrono::milliseconds;
    const auto left = std::chrono::ceil<Milliseconds>(*due - Timers::Clock::now());
    loop.alarm.start(std::max(left, Milliseconds(0)));
    loop.alarmAt = due;
}

void Sleep() {
    SetAlarm();
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

bool Never() {
    return false;
}

// Nothing when `done` has come true meanwhile, and where there are no windows at all.
std::optional<MSG> WaitForMessage(const MessageFilter& filter, const std::function<bool()>& done) {
    while (!done()) {
        if (auto ready = TakeReady(filter, true)) {
            return ready;
        }
        if (done() || application::Instance() == nullptr) {
            return std::nullopt;
        }
        Sleep();
    }
    return std::nullopt;
}

MSG WithPointer(MSG message) {
    const bool fromPointer = message.message >= WM_MOUSEFIRST && message.message <= WM_MOUSEWHEEL;
    if (!fromPointer) {
        message.pt = LastPointerPosition();
    }
    return message;
}

} // namespace

void PrepareLoop() {
    Loop& loop = TheLoop();
    loop.alarm.setSingleShot(true);
    loop.alarm.setTimerType(Qt::PreciseTimer);
    Queue().WakeThrough(QCoreApplication::eventDispatcher());
}

void DispatchUntil(const std::function<bool()>& done) {
    while (auto message = WaitForMessage({}, done)) {
        if (message->message == WM_QUIT) {
            PostQuitMessage(static_cast<int>(message->wParam));
            return;
        }
        DispatchMessageW(&*message);
    }
}

} // namespace windowing

BOOL GetMessageW(LPMSG message, HWND window, UINT firstMessage, UINT lastMessage) {
    if (message == nullptr) {
        return -1;
    }
    const auto next =
        windowing::WaitForMessage({window, firstMessage, lastMessage}, windowing::Never);
    if (!next.has_value()) {
        return -1;
    }
    *message = windowing::WithPointer(*next);
    return message->message == WM_QUIT ? FALSE : TRUE;
}

BOOL PeekMessageW(LPMSG message, HWND window, UINT firstMessage, UINT lastMessage, UINT remove) {
    if (message == nullptr) {
        return FALSE;
    }
    const auto next =
        windowing::TakeReady({window, firstMessage, lastMessage}, (remove & PM_REMOVE) != 0);
    if (!next.has_value()) {
        return FALSE;
    }
    *message = windowing::WithPointer(*next);
    return TRUE;
}

BOOL TranslateMessage(const MSG* message) {
    if (message == nullptr) {
        return FALSE;
    }
    constexpr UINT kKeys[] = {WM_KEYDOWN, WM_KEYUP, WM_SYSKEYDOWN, WM_SYSKEYUP};
    return std::find(std::begin(kKeys), std::end(kKeys), message->message) != std::end(kKeys)
               ? TRUE
               : FALSE;
}

LRESULT DispatchMessageW(const MSG* message) {
    return message == nullptr
               ? 0
               : SendMessageW(message->hwnd, message->message, message->wParam, message->lParam);
}

LRESULT SendMessageW(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const auto window = windowing::Find(handle);
    return window == nullptr ? 0 : windowing::Send(*window, message, wParam, lParam);
}

void PostQuitMessage(int exitCode) {
    windowing::TheLoop().exitCode = exitCode;
}

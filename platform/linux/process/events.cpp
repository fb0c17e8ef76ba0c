// Waitable objects: events.
#include "process/event.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <ctime>
#include <memory>

namespace process {

namespace {

static_assert(std::atomic<std::uint32_t>::is_always_lock_free &&
              sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));

long Futex(std::atomic<std::uint32_t>& word, int operation, std::uint32_t value,
           const timespec* timeout) {
    return syscall(SYS_futex, &word, operation | FUTEX_PRIVATE_FLAG, value, timeout, nullptr, 0);
}

} // namespace

void Event::Set() {
    const std::uint32_t waitersToWake = manualReset_ ? INT_MAX : 1;
    const std::uint32_t before = state_.fetch_or(kSet, std::memory_order_release);
    if (before >= kWaiter && (before & kSet) == 0) {
        Futex(state_, FUTEX_WAKE, waitersToWake, nullptr);
    }
}

// Takes the event if it is set.
bool Event::Take() {
    std::uint32_t state = state_.load(std::memory_order_acquire);
    while ((state & kSet) != 0) {
        if (manualReset_ ||
            state_.compare_exchange_weak(state, state & ~kSet, std::memory_order_acquire)) {
            return true;
        }
    }
    return false;
}

bool Event::Wait(DWORD timeoutMs) {
    if (Take()) {
        return true;
    }
    state_.fetch_add(kWaiter, std::memory_order_relaxed);
    const bool taken = Sleep(timeoutMs);
    state_.fetch_sub(kWaiter, std::memory_order_relaxed);
    return taken;
}

// Sleeps, as a waiter that has been counted, until it takes the event or the time has run out.
bool Event::Sleep(DWORD timeoutMs) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const std::uint32_t state = state_.load(std::memory_order_relaxed);
        if (Take()) {
            return true;
        }
        if ((state & kSet) != 0) {
            continue; // another waiter took it
        }
        if (timeoutMs == INFINITE) {
            Futex(state_, FUTEX_WAIT, state, nullptr);
            continue;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::nanoseconds>(end - Clock::now()).count();
        if (left <= 0) {
            return false;
        }
        const timespec limit{static_cast<time_t>(left / 1'000'000'000), left % 1'000'000'000};
        Futex(state_, FUTEX_WAIT, state, &limit);
    }
}

} // namespace process

HANDLE CreateEventW(SECURITY_ATTRIBUTES* /*security*/, BOOL manualReset, BOOL initiallySet,
                    LPCWSTR name) {
    if (name != nullptr) {
        return nullptr;
    }
    return process::MakeHandle(
        std::make_unique<process::Event>(manualReset != FALSE, initiallySet != FALSE));
}

BOOL SetEvent(HANDLE event) {
    auto* const object = process::ObjectOf<process::Event>(event);
    if (object == nullptr) {
        return FALSE;
    }
    object->Set();
    return TRUE;
}

BOOL ResetEvent(HANDLE event) {
    auto* const object = process::ObjectOf<process::Event>(event);
    if (object == nullptr) {
        return FALSE;
    }
    object->Reset();
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE object, DWORD timeoutMs) {
    auto* const event = process::ObjectOf<process::Event>(object);
    if (event == nullptr) {
        return WAIT_FAILED;
    }
    return event->Wait(timeoutMs) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

// Sleeping, timer resolution and multimedia scheduling.
#include "process/audio_priority.h"
#include "process/poll_pause.h"

#include <windows.h>
#include <avrt.h>
#include <pthread.h>
#include <sched.h>
#include <timeapi.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <memory>
#include <utility>

namespace {

thread_local std::shared_ptr<process::Event> polledFor; // by this thread's next Sleep alone

} // namespace

void process::SleepUntilReady(const std::shared_ptr<Event>& ready) {
    polledFor = ready;
}

void Sleep(DWORD milliseconds) {
    if (milliseconds == 0) {
        sched_yield();
        return;
    }
    const auto ready = std::exchange(polledFor, nullptr);
    if (ready != nullptr && milliseconds < process::kLongestPollPauseMs) {
        ready->Wait(process::kLongestPollPauseMs);
        return;
    }
    timespec rest{static_cast<time_t>(milliseconds / 1000),
                  static_cast<long>(milliseconds % 1000) * 1'000'000};
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &rest, &rest) == EINTR) {
    }
}

bool process::RaiseThreadForAudio() {
    sched_param raised{};
    raised.sched_priority = sched_get_priority_min(SCHED_RR);
    return pthread_setschedparam(pthread_self(), SCHED_RR | SCHED_RESET_ON_FORK, &raised) == 0;
}

// The kernel's timers are finer than any period that can be asked for here.
MMRESULT timeBeginPeriod(UINT /*periodMs*/) {
    return TIMERR_NOERROR;
}
MMRESULT timeEndPeriod(UINT /*periodMs*/) {
    return TIMERR_NOERROR;
}

namespace {

// What the thread had before it joined a task, to go back to.
struct FormerScheduling {
    int policy = SCHED_OTHER;
    sched_param parameters{};
};

} // namespace

HANDLE AvSetMmThreadCharacteristicsW(LPCWSTR /*taskName*/, LPDWORD taskIndex) {
    static std::atomic<DWORD> tasks{0};
    auto former = std::make_unique<FormerScheduling>();
    if (pthread_getschedparam(pthread_self(), &former->policy, &former->parameters) != 0) {
        return nullptr;
    }
    if (!process::RaiseThreadForAudio()) {
        return nullptr;
    }
    if (taskIndex != nullptr) {
        *taskIndex = ++tasks;
    }
    return former.release();
}

BOOL AvRevertMmThreadCharacteristics(HANDLE task) {
    if (task == nullptr) {
        return FALSE;
    }
    const std::unique_ptr<FormerScheduling> former(static_cast<FormerScheduling*>(task));
    return pthread_setschedparam(pthread_self(), former->policy, &former->parameters) == 0;
}

// The event behind the event handles, for rooms that signal one themselves.
#pragma once

#include "process/handle.h"

#include <atomic>
#include <cstdint>

namespace process {

// Any thread may set, reset or wait. On a futex rather than a mutex and a condition: a capture sets
// an event for every packet, and this costs one system call, none when nobody waits. Set touches
// nothing of the event after the moment when a waiter may take it, so that the waiter may destroy
// it at once.
class Event final : public HandleObject {
public:
    static constexpr HandleKind kKind = HandleKind::Event;

    Event(bool manualReset, bool set)
        : HandleObject(kKind), manualReset_(manualReset), state_(set ? kSet : 0) {}

    void Set();
    void Reset() { state_.fetch_and(~kSet, std::memory_order_relaxed); }
    // False when the time ran out. An auto-reset event is taken by one waiter.
    bool Wait(DWORD timeoutMs);

private:
    static constexpr std::uint32_t kSet = 1;
    static constexpr std::uint32_t kWaiter = 2; // what one waiter adds

    bool Take();
    bool Sleep(DWORD timeoutMs);

    const bool manualReset_;
    std::atomic<std::uint32_t> state_;
};

} // namespace process

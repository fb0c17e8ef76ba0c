// Owning an event of the system.
#pragma once

#include <windows.h>

#include <utility>

// An owned event, null until one is given.
class EventHandle {
public:
    EventHandle() = default;
    explicit EventHandle(HANDLE event) : event_(event) {}
    ~EventHandle() { Reset(nullptr); }
    EventHandle(const EventHandle&) = delete;
    EventHandle& operator=(const EventHandle&) = delete;

    explicit operator bool() const { return event_ != nullptr; }
    HANDLE get() const { return event_; }
    void Reset(HANDLE event) {
        if (HANDLE former = std::exchange(event_, event); former != nullptr) {
            CloseHandle(former);
        }
    }

private:
    HANDLE event_ = nullptr;
};

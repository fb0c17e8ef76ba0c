// Waitable objects: events.
#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace {

// What a HANDLE of this room points to. Any thread may set, reset or wait; whoever closes it makes
// sure that nobody waits any more, as on Windows.
class Event {
public:
    Event(bool manualReset, bool set) : manualReset_(manualReset), set_(set) {}

    void Set() {
        // Signalled under the lock: a waiter may close the event as soon as it has taken it.
        const std::lock_guard lock(mutex_);
        set_ = true;
        if (manualReset_) {
            changed_.notify_all();
        } else {
            changed_.notify_one();
        }
    }

    void Reset() {
        const std::lock_guard lock(mutex_);
        set_ = false;
    }

    bool Wait(DWORD timeoutMs) {
        std::unique_lock lock(mutex_);
        const auto isSet = [this] { return set_; };
        if (timeoutMs == INFINITE) {
            changed_.wait(lock, isSet);
        } else if (!changed_.wait_for(lock, std::chrono::milliseconds(timeoutMs), isSet)) {
            return false;
        }
        set_ = manualReset_;
        return true;
    }

private:
    const bool manualReset_;
    std::mutex mutex_; // guards set_; nothing but the flag is touched under it
    std::condition_variable changed_;
    bool set_;
};

} // namespace

HANDLE CreateEventW(SECURITY_ATTRIBUTES* /*security*/, BOOL manualReset, BOOL initiallySet,
                    LPCWSTR name) {
    if (name != nullptr) {
        return nullptr;
    }
    return std::make_unique<Event>(manualReset != FALSE, initiallySet != FALSE).release();
}

BOOL SetEvent(HANDLE event) {
    if (event == nullptr) {
        return FALSE;
    }
    static_cast<Event*>(event)->Set();
    return TRUE;
}

BOOL ResetEvent(HANDLE event) {
    if (event == nullptr) {
        return FALSE;
    }
    static_cast<Event*>(event)->Reset();
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE object, DWORD timeoutMs) {
    if (object == nullptr) {
        return WAIT_FAILED;
    }
    return static_cast<Event*>(object)->Wait(timeoutMs) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

BOOL CloseHandle(HANDLE object) {
    if (object == nullptr) {
        return FALSE;
    }
    const std::unique_ptr<Event> owner(static_cast<Event*>(object));
    return TRUE;
}

// Asking the service about an access key, on a thread of its own. Knows the request and the window
// that gets the answer; nothing of how it is shown.
#pragma once

#include "http_caller.h"
#include "key_status.h"

#include <windows.h>

#include <atomic>
#include <memory>

inline constexpr UINT kMsgKeyStatus = WM_APP + 10;     // lParam: a KeyCheckResult, the receiver's
inline constexpr UINT kMsgKeyCheckEnded = WM_APP + 11; // another check may begin

// Shared by the popup and its check thread; lives as long as either.
struct KeyCheckFlags {
    std::atomic<bool> checkCancelled{false}; // set by the asker: no answer is wanted any more
    std::atomic<bool> checkInFlight{false};  // cleared by the thread at its end
};

// What a check's thread owns.
struct KeyCheckTask {
    const void* asker = nullptr; // identifies the sender of the answer; never dereferenced
    HWND window = nullptr;       // gets kMsgKeyStatus unless cancelled, then kMsgKeyCheckEnded
    WideString key;
    std::shared_ptr<HttpCaller> caller;   // this check's; giving it up ends the check at once
    std::shared_ptr<KeyCheckFlags> flags; // checkInFlight is set
};

// Starts a detached thread that ends by itself within the network's time-outs. False, with
// checkInFlight cleared, when there can be no thread.
bool StartKeyCheckThread(KeyCheckTask task);

// Requests that end: each within a limit for the whole of it, and at once when another thread gives
// them up. Knows the platform's HTTP; no address and no message of the protocol.
#pragma once

#include "internet.h"
#include "wide_text.h"

#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

// In milliseconds, each of one step. A request as a whole gets their sum, however its answer
// arrives.
struct HttpTimeOuts {
    int resolveMs;
    int connectMs;
    int sendMs;
    int receiveMs;
};

// Makes requests one after the other, on one thread at a time; GiveUp comes from any thread.
//
// Closing its handle is what ends a call of the platform that waits. A thread of this object's own
// does that, and only to a thread that has been in its call for a while: the platform may give the
// number of a closed handle out again at once, and a thread that is only about to use it would then
// get into another's request.
class HttpCaller {
public:
    HttpCaller() = default;
    ~HttpCaller();
    HttpCaller(const HttpCaller&) = delete;
    HttpCaller& operator=(const HttpCaller&) = delete;

    // Sends an opened request with further headers, null for none, and reads its answer to the end.
    // The status of the answer, 0 when it cannot be told, with the body in `response`, as much as
    // came before it broke off. Nothing, and no body, when none came, in time, or was given up.
    std::optional<DWORD> Call(InternetHandle request, const HttpTimeOuts& timeOuts,
                              const WCHAR* headers, const std::string& body, std::string& response);

    // The request under way fails, unless its answer is there within 100 ms, and all later ones do
    // at once. Never waits for the network.
    void GiveUp();

private:
    using Clock = std::chrono::steady_clock;

    void Begin(InternetHandle request, const HttpTimeOuts& timeOuts);
    bool End();
    bool Exchange(const WCHAR* headers, const std::string& body);
    DWORD ReadAnswer(std::string& response);
    template <typename Operation>
    bool Do(const Operation& operation);

    void Watch();
    Clock::time_point NextLook() const;

    std::mutex mutex_; // guards what follows; never held during a call that may wait
    std::condition_variable changed_;
    InternetHandle request_;     // null: none under way, or it has been ended
    Clock::time_point deadline_; // of the request
    bool isInCall_ = false;
    Clock::time_point callBegan_;
    bool givenUp_ = false;
    bool isEnding_ = false;
    Clock::time_point nextLook_ = Clock::time_point::min(); // of the watch, when it sleeps
    std::thread watch_;                                     // from the first request on
};

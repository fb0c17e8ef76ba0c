#include "http_caller.h"

#include "thread_start.h"

#include <algorithm>

namespace {

// By then a thread is in the call that it has announced.
constexpr auto kSurelyInside = std::chrono::milliseconds(20);

// An answer that is about to come is let in: its connection then carries what is said next.
constexpr auto kGrace = std::chrono::milliseconds(100);

} // namespace

HttpCaller::~HttpCaller() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_all();
    if (watch_.joinable()) {
        watch_.join();
    }
}

void HttpCaller::GiveUp() {
    {
        const std::lock_guard lock(mutex_);
        givenUp_ = true;
        deadline_ = std::min(deadline_, Clock::now() + kGrace);
    }
    changed_.notify_all();
}

std::optional<DWORD> HttpCaller::Call(InternetHandle request, const HttpTimeOuts& timeOuts,
                                      const WCHAR* headers, const std::string& body,
                                      std::string& response) {
    response.clear();
    Begin(std::move(request), timeOuts);
    const bool answered = Exchange(headers, body);
    const DWORD status = answered ? ReadAnswer(response) : 0;
    if (!End() || !answered) {
        response.clear();
        return std::nullopt;
    }
    return status;
}

void HttpCaller::Begin(InternetHandle request, const HttpTimeOuts& timeOuts) {
    WinHttpSetTimeouts(request.get(), timeOuts.resolveMs, timeOuts.connectMs, timeOuts.sendMs,
                       timeOuts.receiveMs);
    const int wholeMs =
        timeOuts.resolveMs + timeOuts.connectMs + timeOuts.sendMs + timeOuts.receiveMs;
    const std::lock_guard lock(mutex_);
    if (!watch_.joinable()) {
        // Without it a request ends by the time-outs of its steps alone.
        static_cast<void>(StartThread(watch_, [this] { Watch(); }));
    }
    request_ = std::move(request);
    deadline_ = Clock::now() + std::chrono::milliseconds(givenUp_ ? 0 : wholeMs);
}

// False when the request was not let come to its own end.
bool HttpCaller::End() {
    const std::lock_guard lock(mutex_);
    const bool wasLetEnd = static_cast<bool>(request_);
    request_.Reset();
    return wasLetEnd;
}

bool HttpCaller::Exchange(const WCHAR* headers, const std::string& body) {
    // The platform only reads the body; its interface is older than const.
    void* data = body.empty() ? nullptr : const_cast<char*>(body.data());
    const auto length = static_cast<DWORD>(body.size());
    return Do([&](HINTERNET request) {
               if (headers != nullptr) {
                   WinHttpAddRequestHeaders(request, headers, static_cast<DWORD>(-1),
                                            WINHTTP_ADDREQ_FLAG_ADD);
               }
               return WinHttpSendRequest(request, WINHTTP_NO_ADDITIONAL_HEADERS, 0, data, length,
                                         length, 0);
           }) &&
           Do([](HINTERNET request) { return WinHttpReceiveResponse(request, nullptr); });
}

// The body comes in the pieces in which it arrives, up to its end or to where it breaks off.
DWORD HttpCaller::ReadAnswer(std::string& response) {
    DWORD status = 0;
    Do([&](HINTERNET request) {
        DWORD bytes = sizeof status;
        return WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                                   WINHTTP_HEADER_NAME_BY_INDEX, &status, &bytes,
                                   WINHTTP_NO_HEADER_INDEX);
    });
    DWORD available = 0;
    const auto await = [&](HINTERNET request) {
        return WinHttpQueryDataAvailable(request, &available);
    };
    while (Do(await) && available > 0) {
        const std::size_t size = response.size();
        response.resize(size + available);
        DWORD read = 0;
        Do([&](HINTERNET request) {
            return WinHttpReadData(request, response.data() + size, available, &read);
        });
        response.resize(size + read);
    }
    return status;
}

// One call of the platform, which may wait. False when it failed or the request has been ended.
template <typename Operation>
bool HttpCaller::Do(const Operation& operation) {
    HINTERNET request = nullptr;
    {
        const std::lock_guard lock(mutex_);
        if (Clock::now() >= deadline_) {
            request_.Reset();
        }
        if (!request_) {
            return false;
        }
        request = request_.get();
        isInCall_ = true;
        callBegan_ = Clock::now();
        if (NextLook() < nextLook_) {
            changed_.notify_all();
        }
    }
    const bool done = operation(request) != FALSE;
    const std::lock_guard lock(mutex_);
    isInCall_ = false;
    return done;
}

// ---- The watch ----------------------------------------------------------------------------------

// When the call in which the request is may have to be ended.
HttpCaller::Clock::time_point HttpCaller::NextLook() const {
    if (!request_ || !isInCall_) {
        return Clock::time_point::max();
    }
    return std::max(deadline_, callBegan_ + kSurelyInside);
}

void HttpCaller::Watch() {
    std::unique_lock lock(mutex_);
    while (!isEnding_) {
        nextLook_ = NextLook();
        if (nextLook_ == Clock::time_point::max()) {
            changed_.wait(lock);
        } else if (Clock::now() < nextLook_) {
            changed_.wait_until(lock, nextLook_);
        } else {
            InternetHandle ended = std::move(request_);
            lock.unlock(); // whoever gives up must not wait for the platform
            ended.Reset();
            lock.lock();
        }
    }
}

// One request and its response: what goes on the wire, when it counts as sent, and what comes back.
// Knows nothing of handles or wide text.
#pragma once

#include "http/connection.h"
#include "http/url.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace http {

enum class Method { Get, Post };

// In milliseconds; 0 or less is no limit. What a request has that is never told others.
struct TimeOuts {
    int resolveMs = 0;
    int connectMs = 60'000; // all addresses of the host and a TLS handshake together
    int sendMs = 30'000;    // without anything of the request going out
    int receiveMs = 30'000; // without anything of the response coming in
};

// One thread at a time calls its operations, but for Close, and those of its connection. Each takes
// the connection's lock. libcurl keeps its address.
class Request {
public:
    Request(std::shared_ptr<Connection> connection, Method method, Address address);
    ~Request();
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    bool IsUsable() const { return easy_ && headers_; }
    void SetTimeOuts(const TimeOuts& timeOuts);
    // Lines parted by CR LF. All of them are taken or none. Not after Send.
    bool AddHeaders(std::string_view lines);

    // Once for each request. True when the whole request is in the socket's hands, or the response
    // came before that. `body` must stay valid until ReceiveHead has returned.
    bool Send(const void* body, std::size_t bytes);
    // True when the head of the final response is there.
    bool ReceiveHead();
    // The status of the final response; nothing before its head is there.
    std::optional<long> Status() const;

    // Waits until some of the body is there and tells how much, 0 at its end; nothing when it broke
    // off.
    std::optional<std::size_t> AwaitBody();
    // As AwaitBody, and takes up to `room` bytes of what is there.
    std::optional<std::size_t> Take(void* buffer, std::size_t room);

    // From any thread: the operation that waits fails at once, and so do all later ones. What Send
    // was given is not looked at any more.
    void Close();

private:
    using Lock = Connection::Lock;
    enum class Stage { New, Sent, HeadReceived, Failed };
    // What libcurl is at; each has a time-out of its own.
    enum class Phase { Resolving, Connecting, Exchanging };

    bool Dispatch(Lock& lock);
    bool Configure();
    bool IsHandedOver() const;
    bool FollowRedirects(Lock& lock);
    std::optional<Address> RedirectTarget() const;
    bool Fail();
    template <typename Condition>
    bool DriveUntil(Lock& lock, Condition reached, int quietLimitMs);
    bool DriveToBody(Lock& lock);
    Clock::time_point Deadline(int quietLimitMs) const;
    void EnterPhase(Phase phase);
    void GiveUp(CURLcode result);
    std::size_t Available() const { return received_.size() - taken_; }
    bool AppendHeader(const std::string& line);

    static int BeforeWriting(void* request, char*, char*, int, int) noexcept;
    static curl_socket_t OpenSocket(void* request, curlsocktype, curl_sockaddr* address) noexcept;
    static std::size_t OnHeaderLine(char* line, std::size_t, std::size_t bytes,
                                    void* request) noexcept;
    static std::size_t OnBody(char* data, std::size_t, std::size_t bytes, void* request) noexcept;

    std::shared_ptr<Connection> connection_;
    Method method_;
    Address address_; // changes with every redirect
    TimeOuts timeOuts_;
    HeaderList headers_;
    EasyHandle easy_;

    Stage stage_ = Stage::New;
    const void* body_ = nullptr; // the caller's
    std::size_t bodyBytes_ = 0;

    TransferProgress progress_;
    Phase phase_ = Phase::Resolving;
    Clock::time_point phaseBegan_;
    bool headComplete_ = false;
    long status_ = 0;
    std::string received_;  // of the body
    std::size_t taken_ = 0; // of `received_`, by the caller
};

} // namespace http

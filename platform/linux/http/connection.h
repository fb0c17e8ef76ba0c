// The live connection behind a connection handle: libcurl's pool for one connection and the loop
// that moves its traffic. Knows transfers only by what it tells about them.
#pragma once

#include "http/curl_owners.h"
#include "http/session.h"

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace http {

using Clock = std::chrono::steady_clock;

// Ends a wait from another thread.
class Waker {
public:
    Waker();
    ~Waker();
    Waker(const Waker&) = delete;
    Waker& operator=(const Waker&) = delete;

    bool IsOpen() const { return descriptor_ >= 0; }
    int Descriptor() const { return descriptor_; } // readable from Ring to Clear
    void Ring() const;
    void Clear() const;

private:
    int descriptor_;
};

// What the connection tells about one transfer.
struct TransferProgress {
    Clock::time_point lastTraffic; // when its socket last took or brought bytes
    bool finished = false;
    CURLcode result = CURLE_OK; // set when finished
};

// A monitor: its lock guards it and the requests on it, and Step lets go of the lock while it
// waits, so that another thread can withdraw the transfer that is waited for. Wake and what never
// changes need no lock; everything else is called with it, and libcurl's callbacks come under it.
//
// Steps, which one thread at a time makes, move the traffic of all transfers that were begun, and
// nothing moves between them: a slow reader slows the sender.
class Connection {
public:
    using Lock = std::unique_lock<std::mutex>;

    // `port` 0 is the scheme's own.
    Connection(std::shared_ptr<const Session> session, std::string host, std::uint16_t port);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool IsUsable() const { return multi_ != nullptr && waker_.IsOpen(); }
    const Session& CommonSettings() const { return *session_; }
    const std::string& Host() const { return host_; }
    std::uint16_t Port() const { return port_; }

    Lock Enter() { return Lock(mutex_); }
    // Ends the wait of a Step, or of the next one.
    void Wake() { waker_.Ring(); }

    // Begins a transfer; `progress` is kept up to date until it is withdrawn.
    bool Begin(CURL* easy, TransferProgress& progress);
    // Ends a transfer. One that is not finished costs the connection it runs on.
    void Withdraw(CURL* easy);

    // Waits for traffic, until `deadline` at most, and handles what came. `lock` is this
    // connection's.
    void Step(Lock& lock, Clock::time_point deadline);

    // libcurl has more of this request to write.
    bool WantsToWrite(const TransferProgress& progress) const;
    // The server has closed a connection that libcurl would use again.
    bool ServerHungUp() const;

    // Callbacks of libcurl that the easy handles of this connection are given, with `this`.
    curl_socket_t OpenSocket(const curl_sockaddr& address) noexcept;
    static int CloseSocket(void* connection, curl_socket_t socket) noexcept;

private:
    struct WatchedSocket {
        curl_socket_t socket;
        short events; // as poll takes them
        TransferProgress* progress;
    };

    static int OnWatch(CURL* easy, curl_socket_t socket, int what, void* connection,
                       void* unused) noexcept;
    static int OnTimer(CURLM* multi, long timeoutMs, void* connection) noexcept;
    void Unwatch(curl_socket_t socket);
    void Wait(Lock& lock, int timeoutMs);
    void Deliver(const pollfd& ready);
    void CollectFinished();

    std::shared_ptr<const Session> session_;
    std::string host_;
    std::uint16_t port_;
    Waker waker_;
    std::mutex mutex_;                                   // guards what follows, and the requests
    Clock::time_point timer_ = Clock::time_point::max(); // when libcurl wants to be called
    std::vector<WatchedSocket> watched_;
    std::vector<pollfd> pollSet_;            // the one Step's; kept for its room only
    std::vector<curl_socket_t> openSockets_; // the idle one among them
    MultiHandle multi_; // the last member: its clean-up still calls CloseSocket
};

} // namespace http

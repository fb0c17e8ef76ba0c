// The live connection behind a connection handle: libcurl's pool for one connection and the loop
// that moves its traffic. Knows transfers only by what it tells about them.
#pragma once

#include "http/curl_owners.h"
#include "http/session.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <poll.h>

namespace http {

using Clock = std::chrono::steady_clock;

// What the connection tells about one transfer.
struct TransferProgress {
    Clock::time_point lastTraffic; // when its socket last took or brought bytes
    bool finished = false;
    CURLcode result = CURLE_OK; // set when finished
};

// One thread at a time calls its operations, so it has no lock. They move the traffic of all
// transfers that were begun, and nothing moves between the calls: a slow reader slows the sender.
class Connection {
public:
    // `port` 0 is the scheme's own.
    Connection(std::shared_ptr<const Session> session, std::string host, std::uint16_t port);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool IsUsable() const { return multi_ != nullptr; }
    const Session& CommonSettings() const { return *session_; }
    const std::string& Host() const { return host_; }
    std::uint16_t Port() const { return port_; }

    // Begins a transfer; `progress` is kept up to date until it is withdrawn.
    bool Begin(CURL* easy, TransferProgress& progress);
    // Ends a transfer. One that is not finished costs the connection it runs on.
    void Withdraw(CURL* easy);

    // Waits for traffic, until `deadline` at most, and handles what came.
    void Step(Clock::time_point deadline);

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
    void Deliver(const pollfd& ready);
    void CollectFinished();

    std::shared_ptr<const Session> session_;
    std::string host_;
    std::uint16_t port_;
    Clock::time_point timer_ = Clock::time_point::max(); // when libcurl wants to be called
    std::vector<WatchedSocket> watched_;
    std::vector<pollfd> pollSet_;            // kept for its room only
    std::vector<curl_socket_t> openSockets_; // the idle one among them
    MultiHandle multi_; // the last member: its clean-up still calls CloseSocket
};

} // namespace http

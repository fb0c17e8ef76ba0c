#include "http/connection.h"

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <limits>

namespace http {
namespace {

// Rounded up, so that a wait never ends before its time.
int PollTimeoutMs(Clock::time_point until) {
    if (until == Clock::time_point::max()) {
        return -1;
    }
    const auto remaining = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
    constexpr std::int64_t kLongest = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp<std::int64_t>(remaining.count(), 0, kLongest));
}

short PollEvents(int what) {
    switch (what) {
    case CURL_POLL_IN:
        return POLLIN;
    case CURL_POLL_OUT:
        return POLLOUT;
    default:
        return POLLIN | POLLOUT;
    }
}

int SelectBits(short revents) {
    int bits = 0;
    bits |= (revents & POLLIN) != 0 ? CURL_CSELECT_IN : 0;
    bits |= (revents & POLLOUT) != 0 ? CURL_CSELECT_OUT : 0;
    bits |= (revents & (POLLERR | POLLHUP)) != 0 ? CURL_CSELECT_ERR : 0;
    return bits;
}

TransferProgress* ProgressOf(CURL* easy) {
    TransferProgress* progress = nullptr;
    curl_easy_getinfo(easy, CURLINFO_PRIVATE, &progress);
    return progress;
}

} // namespace

Waker::Waker() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Waker::~Waker() {
    if (IsOpen()) {
        close(descriptor_);
    }
}

void Waker::Ring() const {
    (void)eventfd_write(descriptor_, 1); // fails only where it would ring already
}

void Waker::Clear() const {
    eventfd_t rings = 0;
    (void)eventfd_read(descriptor_, &rings);
}

Connection::Connection(std::shared_ptr<const Session> session, std::string host, std::uint16_t port)
    : session_(std::move(session)), host_(std::move(host)), port_(port), multi_(curl_multi_init()) {
    if (!multi_) {
        return;
    }
    curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETFUNCTION, &Connection::OnWatch);
    curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_.get(), CURLMOPT_TIMERFUNCTION, &Connection::OnTimer);
    curl_multi_setopt(multi_.get(), CURLMOPT_TIMERDATA, this);
    // One, so that a connection that was replaced is closed as soon as its successor falls idle.
    curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, 1L);
}

bool Connection::Begin(CURL* easy, TransferProgress& progress) {
    progress = {Clock::now(), false, CURLE_OK};
    return curl_easy_setopt(easy, CURLOPT_PRIVATE, &progress) == CURLE_OK &&
           curl_multi_add_handle(multi_.get(), easy) == CURLM_OK;
}

void Connection::Withdraw(CURL* easy) {
    curl_multi_remove_handle(multi_.get(), easy);
}

void Connection::Step(Lock& lock, Clock::time_point deadline) {
    const int timeoutMs = PollTimeoutMs(std::min(deadline, timer_));
    const bool isMereTurn = watched_.empty() && timeoutMs == 0; // libcurl wants to go on at once
    if (!isMereTurn) {
        Wait(lock, timeoutMs);
    }
    if (timer_ <= Clock::now()) {
        timer_ = Clock::time_point::max();
        int running = 0;
        curl_multi_socket_action(multi_.get(), CURL_SOCKET_TIMEOUT, 0, &running);
    }
    CollectFinished();
}

void Connection::Wait(Lock& lock, int timeoutMs) {
    pollSet_.clear();
    pollSet_.push_back({waker_.Descriptor(), POLLIN, 0});
    for (const WatchedSocket& watched : watched_) {
        pollSet_.push_back({watched.socket, watched.events, 0});
    }
    lock.unlock();
    const int ready = poll(pollSet_.data(), pollSet_.size(), timeoutMs);
    lock.lock();
    if (ready <= 0) {
        return;
    }
    if (pollSet_.front().revents != 0) {
        waker_.Clear();
    }
    for (const pollfd& state : pollSet_) {
        Deliver(state);
    }
}

void Connection::Deliver(const pollfd& ready) {
    if (ready.revents == 0) {
        return;
    }
    const auto watched =
        std::find_if(watched_.begin(), watched_.end(), [&ready](const WatchedSocket& candidate) {
            return candidate.socket == ready.fd;
        });
    if (watched == watched_.end()) { // the waker, or closed meanwhile
        return;
    }
    if (watched->progress) {
        watched->progress->lastTraffic = Clock::now();
    }
    int running = 0;
    curl_multi_socket_action(multi_.get(), ready.fd, SelectBits(ready.revents), &running);
}

void Connection::CollectFinished() {
    int remaining = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &remaining)) {
        TransferProgress* progress = ProgressOf(message->easy_handle);
        if (message->msg == CURLMSG_DONE && progress) {
            progress->finished = true;
            progress->result = message->data.result;
        }
    }
}

bool Connection::WantsToWrite(const TransferProgress& progress) const {
    return std::any_of(watched_.begin(), watched_.end(), [&progress](const WatchedSocket& watched) {
        return watched.progress == &progress && (watched.events & POLLOUT) != 0;
    });
}

// libcurl looks for itself too, but takes the last record of a TLS connection for a sign of life.
bool Connection::ServerHungUp() const {
    return std::any_of(openSockets_.begin(), openSockets_.end(), [](curl_socket_t socket) {
        pollfd state{socket, POLLRDHUP, 0};
        return poll(&state, 1, 0) > 0;
    });
}

curl_socket_t Connection::OpenSocket(const curl_sockaddr& address) noexcept {
    const curl_socket_t socket =
        ::socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol);
    if (socket != CURL_SOCKET_BAD) {
        openSockets_.push_back(socket);
    }
    return socket;
}

int Connection::CloseSocket(void* connection, curl_socket_t socket) noexcept {
    std::erase(static_cast<Connection*>(connection)->openSockets_, socket);
    return close(socket);
}

int Connection::OnWatch(CURL* easy, curl_socket_t socket, int what, void* connection,
                        void* /*unused*/) noexcept {
    auto* self = static_cast<Connection*>(connection);
    self->Unwatch(socket);
    if (what != CURL_POLL_REMOVE) {
        self->watched_.push_back({socket, PollEvents(what), ProgressOf(easy)});
    }
    return 0;
}

void Connection::Unwatch(curl_socket_t socket) {
    std::erase_if(watched_,
                  [socket](const WatchedSocket& watched) { return watched.socket == socket; });
}

int Connection::OnTimer(CURLM* /*multi*/, long timeoutMs, void* connection) noexcept {
    static_cast<Connection*>(connection)->timer_ =
        timeoutMs < 0 ? Clock::time_point::max()
                      : Clock::now() + std::chrono::milliseconds(timeoutMs);
    return 0;
}

} // namespace http

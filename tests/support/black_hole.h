// An address on loopback whose packets are dropped, as behind a firewall that answers nothing.
#pragma once

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>
#include <vector>

// A listener that nobody serves and whose queue is full: the kernel drops whatever knocks then.
class BlackHole {
public:
    BlackHole() {
        const int listener = Open(0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (bind(listener, generic, size) != 0 || listen(listener, 0) != 0 ||
            getsockname(listener, generic, &size) != 0) {
            throw std::runtime_error("black hole: cannot listen");
        }
        port_ = ntohs(address.sin_port);
        constexpr int kMostGuests = 64;
        constexpr int kDroppedMs = 200; // by then a connection over loopback stands
        for (int guests = 0; guests < kMostGuests; ++guests) {
            pollfd guest{Open(SOCK_NONBLOCK), POLLOUT, 0};
            (void)connect(guest.fd, generic, size);
            if (poll(&guest, 1, kDroppedMs) == 0) {
                return;
            }
        }
        throw std::runtime_error("black hole: its queue does not fill");
    }
    ~BlackHole() {
        for (const int socket : sockets_) {
            close(socket);
        }
    }
    BlackHole(const BlackHole&) = delete;
    BlackHole& operator=(const BlackHole&) = delete;

    std::uint16_t Port() const { return port_; }

private:
    int Open(int flags) {
        return sockets_.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
    }

    std::vector<int> sockets_;
    std::uint16_t port_ = 0;
};

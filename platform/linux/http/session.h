// What all requests of one session handle have in common. Knows no connection and no request.
#pragma once

#include <string>

namespace http {

struct Session {
    std::string userAgent; // UTF-8; empty: no such header
    std::string noProxy;   // hosts reached directly, as libcurl lists them
    std::string trustFile; // bundle of the trusted authorities, PEM; empty: the system's
};

// Takes the proxy exceptions and the trust bundle from the environment as it is now. Any thread.
Session MakeSession(std::string userAgent);

} // namespace http

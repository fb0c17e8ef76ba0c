#include "http/session.h"

#include <cstdlib>
#include <string_view>

namespace http {
namespace {

std::string EnvironmentText(const char* name) {
    const char* text = std::getenv(name);
    return text ? text : "";
}

// A proxy could not reach this machine's own services, and must never see what is said to them.
std::string ProxyExceptions() {
    constexpr std::string_view kThisMachine = "localhost,127.0.0.1,::1";
    std::string exceptions = EnvironmentText("no_proxy");
    if (exceptions.empty()) {
        exceptions = EnvironmentText("NO_PROXY");
    }
    if (exceptions == "*") { // means "every host" only when it stands alone
        return exceptions;
    }
    if (!exceptions.empty()) {
        exceptions += ',';
    }
    return exceptions.append(kThisMachine);
}

} // namespace

Session MakeSession(std::string userAgent) {
    return {std::move(userAgent), ProxyExceptions(), EnvironmentText("SSL_CERT_FILE")};
}

} // namespace http

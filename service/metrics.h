// The figures of a running service in the text form that Prometheus reads.
#pragma once

#include <string>

namespace service {

class HttpApi;
class Sessions;

// Any thread.
std::string Metrics(const HttpApi& api, const Sessions& sessions);

} // namespace service

#include "metrics.h"

#include "http_api.h"
#include "sessions.h"

#include <unistd.h>

#include <fstream>
#include <string_view>

namespace service {
namespace {

long ResidentBytes() {
    std::ifstream file("/proc/self/statm");
    long all = 0;
    long resident = 0;
    file >> all >> resident;
    return resident * ::sysconf(_SC_PAGESIZE);
}

class Text {
public:
    void Describe(std::string_view name, const char* type, std::string_view meaning) {
        text_ += "# HELP " + std::string(name) + ' ' + std::string(meaning) + "\n# TYPE " +
                 std::string(name) + ' ' + type + '\n';
    }

    template <typename Number>
    void Value(std::string_view name, Number value) {
        text_ += std::string(name) + ' ' + std::to_string(value) + '\n';
    }

    std::string Take() { return std::move(text_); }

private:
    std::string text_;
};

} // namespace

std::string Metrics(const HttpApi& api, const Sessions& sessions) {
    const SessionFigures figures = sessions.Figures();
    const HttpFigures http = api.Figures();
    Text text;
    const auto gauge = [&](std::string_view name, std::string_view meaning, auto value) {
        text.Describe(name, "gauge", meaning);
        text.Value(name, value);
    };
    const auto counter = [&](std::string_view name, std::string_view meaning, auto value) {
        text.Describe(name, "counter", meaning);
        text.Value(name, value);
    };
    gauge("kelvarin_sessions", "Sessions under way.", figures.sessions);
    counter("kelvarin_sessions_started_total", "Sessions that have been started.", figures.started);
    counter("kelvarin_decoded_seconds_total", "Audio that has been decoded.",
            figures.decodedSeconds);
    gauge("kelvarin_lag_seconds", "Longest time from a request with audio to its answer, of late.",
          figures.longestSeconds);
    gauge("kelvarin_can_store", "1 while what is used can be stored.",
          static_cast<int>(figures.canStore));
    gauge("kelvarin_connections", "Open connections.", http.connections);
    counter("kelvarin_requests_total", "Requests that were read whole.", http.requests);
    counter("kelvarin_unreadable_requests_total", "Requests too large or not to be read.",
            http.refused);
    counter("kelvarin_closed_connections_total",
            "Connections closed for their time or to make room.", http.closed);
    counter("kelvarin_accept_failures_total", "Clients that could not be accepted.",
            http.acceptFailures);
    constexpr std::string_view kName = "kelvarin_refusals_total";
    text.Describe(kName, "counter", "Requests that were turned down, by reason.");
    for (const RefusalCount& refusal : api.Refusals()) {
        text.Value(std::string(kName) + "{reason=\"" + refusal.reason + "\"}", refusal.count);
    }
    gauge("process_resident_memory_bytes", "Memory of the service without its translators.",
          ResidentBytes());
    return text.Take();
}

} // namespace service

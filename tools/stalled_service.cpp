// How long the user waits for a service that does not answer, with the real time-outs: at a start,
// at a Stop and while the access key is checked. Prints the times; fails when one is longer than it
// may be.
#include "black_hole.h"
#include "overlay_probe.h"
#include "popup_probe.h"
#include "scripted_service.h"
#include "test_service_url.h"

#include <objbase.h>

#include <chrono>
#include <cstdio>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

bool allInTime = true;

void Print(const char* what, Clock::time_point since, std::chrono::milliseconds limit) {
    const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since);
    std::printf("%-62s %6lld ms\n", what, static_cast<long long>(time.count()));
    std::fflush(stdout);
    allInTime = allInTime && time <= limit;
}

// Silent or trickling on one path, prompt on all others.
ScriptedService::Handler Stalling(const std::string& path, const ScriptedAnswer& stalled) {
    return [=](const ScriptedRequest& request) {
        if (request.target == path) {
            return stalled;
        }
        return ScriptedAnswer{.body = R"({"session_id":"s","valid":true,"unlimited":true})"};
    };
}

const ScriptedAnswer kSilent{.delay = 1h};
const ScriptedAnswer kTrickling{.body = std::string(1'000, ' '), .pace = 4s};

// From pressing Start to the first failure on the status line, and to the last one, which says why.
void MeasureStart(const char* what, const std::string& url, std::chrono::milliseconds limit) {
    SetServiceUrl(url);
    OverlayProbe overlay({.useMic = false});
    const auto began = Clock::now();
    overlay.Command(kStartButton);
    overlay.PumpUntil([&] { return overlay.StatusIsError(); }, 5min);
    Print(what, began, limit / 2);
    overlay.PumpUntil([&] { return overlay.Status() == "connection_failed"; }, 5min);
    Print("  until the key's check has failed too", began, limit);
}

// From pressing Stop during an exchange to "Paused".
void MeasureStop(const char* what, const ScriptedAnswer& exchange, const ScriptedAnswer& stop,
                 std::chrono::milliseconds limit) {
    ScriptedService service;
    service.SetHandler([&](const ScriptedRequest& request) {
        return request.target == "/session/exchange" ? exchange
               : request.target == "/session/stop"
                   ? stop
                   : ScriptedAnswer{.body = R"({"session_id":"s"})"};
    });
    SetServiceUrl(service.Url());
    OverlayProbe overlay({.useMic = false});
    overlay.Command(kStartButton);
    overlay.PumpUntil([&] { return overlay.IsRunning(); });
    service.WaitForRequests(2);
    const auto began = Clock::now();
    overlay.Command(kStopButton);
    overlay.PumpUntil([&] { return !overlay.IsRunning(); }, 5min);
    Print(what, began, limit);
}

void MeasureKeyCheck(const ScriptedAnswer& stalled) {
    ScriptedService service;
    service.SetHandler(Stalling("/key/status?access_key=first", stalled));
    SetServiceUrl(service.Url());
    SetKeyStatusAccess({service.Port(), false});
    PopupProbe popup;
    popup.SetKey("first");
    popup.Popup().Show();
    service.WaitForRequests(1);
    const auto began = Clock::now();
    popup.SetKey("second");
    popup.PumpUntil([&] { return !popup.CheckInFlight(); }, 5min);
    Print("another key during a check, until that check has ended", began, 300ms);
    popup.PumpUntil([&] { return popup.Status() == KeyStatusValid; }, 5min);
    Print("  until the new key is shown as valid, 0.8 s of it a pause", began, 2s);
}

} // namespace

int main() {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    {
        const BlackHole host;
        MeasureStart("start, the host drops packets",
                     "http://127.0.0.1:" + std::to_string(host.Port()), 22s);
    }
    for (const auto& [what, answer, limit] :
         {std::tuple{"start, the service is silent", kSilent, 18s},
          std::tuple{"start, the answers trickle", kTrickling, 74s}}) {
        ScriptedService service;
        service.SetHandler([answer = answer](const ScriptedRequest&) { return answer; });
        MeasureStart(what, service.Url(), limit);
    }
    const ScriptedAnswer prompt{.body = "{}"};
    MeasureStop("stop during an exchange, its answer does not come", kSilent, prompt, 500ms);
    MeasureStop("stop during an exchange, its answer trickles", kTrickling, prompt, 500ms);
    MeasureStop("stop, the service is silent to that as well", kSilent, kSilent, 9s);
    MeasureStop("stop, the answer to that trickles", kSilent, kTrickling, 37s);
    MeasureKeyCheck(kSilent);
    MeasureKeyCheck(kTrickling);
    return allInTime ? 0 : 1;
}

// What becomes of many final captions that come at once: how many are lost when the program is
// killed right behind them, how soon they stand in the transcript, and how long they hold up a
// Stop. An overlay without a screen, listening to a microphone that speaks all the time, and a
// service that is scripted.
#include "overlay_probe.h"
#include "platform/forked_child.h"
#include "scripted_endpoints.h"
#include "scripted_service.h"
#include "test_service_url.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int kRounds = 30;
constexpr int kFinalsOfARound = 20;
constexpr int kExchangesBefore = 20; // each with a partial result, so that the overlay is painting
constexpr int kBurst = 10000;
constexpr int kBurstRounds = 3;
constexpr int kBurstBeforeStop = 5000;
constexpr double kBurstLimitMs = 2000;
constexpr std::chrono::seconds kPatience(60);

// ---- The overlay, in a process of its own -------------------------------------------------------

template <typename Condition>
void DispatchUntil(const Condition& condition) {
    MSG message;
    while (!condition() && GetMessageW(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

// Sound for a run that goes on until the process is killed, or until `work` has come to its end.
template <typename Work>
int ListenAnd(const std::string& url, const Work& work) {
    SetServiceUrl(url);
    ScriptedEndpoints scene;
    ScriptedEndpoint& mic = scene.Add(TEXT("mic"), eCapture);
    const std::jthread speech([&](const std::stop_token& end) {
        while (!end.stop_requested()) {
            mic.Push(Int16Packet(std::vector<std::int16_t>(160, 100)));
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    });
    OverlayProbe overlay;
    overlay.Command(kStartButton);
    return work(overlay);
}

int StopAtTheFirstCaption(OverlayProbe& overlay, int parent) {
    DispatchUntil([&] { return overlay.Captions().size() > 1; }); // the first one grows before
    const auto begin = Clock::now();
    overlay.Command(kStopButton);
    DispatchUntil([&] { return overlay.Status() == "Paused"; });
    ForkedChild::Tell(parent, static_cast<int>(Milliseconds(Clock::now() - begin).count()));
    return EXIT_SUCCESS;
}

// An overlay that is forked off while this process has one thread, and told the address afterwards.
class ForkedOverlay {
public:
    template <typename Work>
    explicit ForkedOverlay(const Work& work)
        : child_([&](int parent) {
              std::string url(64, '\0');
              url.resize(static_cast<std::size_t>(
                  std::max<ssize_t>(0, read(address_.ends[0], url.data(), url.size()))));
              std::freopen("/dev/null", "w", stderr); // the trace
              return ListenAnd(url, [&](OverlayProbe& overlay) { return work(overlay, parent); });
          }) {}

    void Start(const std::string& url) {
        if (write(address_.ends[1], url.data(), url.size()) < 0) {
            std::perror("pipe");
        }
    }
    ForkedChild& Child() { return child_; }

private:
    struct Pipe {
        std::array<int, 2> ends{-1, -1};
        Pipe() {
            if (pipe(ends.data()) != 0) {
                std::perror("pipe");
            }
        }
        ~Pipe() {
            close(ends[0]);
            close(ends[1]);
        }
        Pipe(const Pipe&) = delete;
        Pipe& operator=(const Pipe&) = delete;
    };

    Pipe address_; // before the child, which inherits it
    ForkedChild child_;
};

int GoOn(OverlayProbe& /*overlay*/, int /*parent*/) {
    DispatchUntil([] { return false; });
    return EXIT_SUCCESS;
}

// ---- The service --------------------------------------------------------------------------------

std::string Result(int number, bool isFinal) {
    return R"({"original":"said )" + std::to_string(number) +
           R"( in so many words","translated":"dicho con tantas palabras","is_final":)" +
           (isFinal ? "true" : "false") + R"(,"source_lang":"en","target_lang":"es"})";
}

std::string Finals(int count) {
    std::string all = "[";
    for (int i = 0; i < count; ++i) {
        all += (i == 0 ? "" : ",") + Result(i, true);
    }
    return all + "]";
}

// Some exchanges with a partial result each, then `burst`, then nothing any more.
class BurstingService {
public:
    // `behind` is called when the exchange behind the burst arrives.
    template <typename Behind>
    BurstingService(const std::string& burst, const Behind& behind) {
        service_.SetHandler([this, burst, behind](const ScriptedRequest& request) {
            ScriptedAnswer answer;
            if (request.target == "/session/start") {
                answer.body = R"({"session_id":"s-1"})";
            } else if (request.target == "/session/exchange") {
                answer.body = "[]";
                const int number = ++exchanges_;
                if (number < kExchangesBefore) {
                    answer.body = "[" + Result(number, false) + "]";
                } else if (number == kExchangesBefore) {
                    answer.body = burst;
                    sent_ = Clock::now();
                } else if (number == kExchangesBefore + 1) {
                    behind();
                }
            } else {
                answer.body = "{}";
            }
            return answer;
        });
    }

    std::string Url() const { return service_.Url(); }
    // When the burst went out; only behind it.
    Clock::time_point Sent() const { return sent_; }

private:
    std::atomic<int> exchanges_{0};
    std::atomic<Clock::time_point> sent_{};
    ScriptedService service_; // last: its threads use what stands above
};

int FinalsWritten() {
    int count = 0;
    for (const std::string& name : TranscriptNames()) {
        const std::string text = TranscriptText(name);
        for (auto at = text.find("\nsaid "); at != std::string::npos;
             at = text.find("\nsaid ", at + 1)) {
            ++count;
        }
    }
    return count;
}

template <typename Condition>
bool WaitUntil(const Condition& condition) {
    const auto limit = Clock::now() + kPatience;
    while (!condition()) {
        if (Clock::now() > limit) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// ---- The measurements ---------------------------------------------------------------------------

bool KillBehindTheBurst() {
    int lost = 0;
    int worst = 0;
    for (int round = 0; round < kRounds; ++round) {
        RemoveTranscripts();
        ForkedOverlay overlay(GoOn);
        std::atomic<bool> killed{false};
        const BurstingService service(Finals(kFinalsOfARound), [&] {
            overlay.Child().Kill();
            killed = true;
        });
        overlay.Start(service.Url());
        if (!WaitUntil([&] { return killed.load(); })) {
            std::puts("The overlay did not get that far.");
            return false;
        }
        const int missing = kFinalsOfARound - FinalsWritten();
        lost += missing;
        worst = std::max(worst, missing);
    }
    std::printf("killed at the next exchange: %d of %d finals lost, at most %d of %d at once\n",
                lost, kRounds * kFinalsOfARound, worst, kFinalsOfARound);
    return lost == 0;
}

bool WriteTheBurst() {
    std::vector<double> times;
    for (int round = 0; round < kBurstRounds; ++round) {
        RemoveTranscripts();
        ForkedOverlay overlay(GoOn);
        const BurstingService service(Finals(kBurst), [] {});
        overlay.Start(service.Url());
        if (!WaitUntil([&] { return FinalsWritten() == kBurst; })) {
            std::printf("%d of %d finals were written.\n", FinalsWritten(), kBurst);
            return false;
        }
        times.push_back(Milliseconds(Clock::now() - service.Sent()).count());
        overlay.Child().Kill();
    }
    std::sort(times.begin(), times.end());
    std::printf("%d finals in one answer: in the transcript after %.0f ms (%.0f to %.0f)\n", kBurst,
                times[times.size() / 2], times.front(), times.back());
    return times.back() <= kBurstLimitMs;
}

bool StopInTheBurst() {
    RemoveTranscripts();
    ForkedOverlay overlay(StopAtTheFirstCaption);
    const BurstingService service(Finals(kBurstBeforeStop), [] {});
    overlay.Start(service.Url());
    const int took = overlay.Child().Told();
    std::printf("a Stop among %d finals: %d ms\n", kBurstBeforeStop, took);
    return took >= 0 && took <= kBurstLimitMs;
}

} // namespace

int main() {
    const bool good = KillBehindTheBurst() & WriteTheBurst() & StopInTheBurst();
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}

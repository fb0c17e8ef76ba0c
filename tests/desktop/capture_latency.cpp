// How long a sample takes from the sound server to the consumer of captured audio, in all three
// modes, on virtual devices of a private sound server.
#include "audio_capture.h"
#include "sound_player.h"
#include "sound_server.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kBursts = 40;
constexpr std::uint32_t kRate = 48000;

// Notes when the first audible sample arrives. Take runs on capture threads.
class BurstEar {
public:
    void Arm() {
        const std::lock_guard lock(mutex_);
        heard_.reset();
    }
    void Take(const std::uint8_t* data, std::uint32_t bytes) {
        const auto now = Clock::now();
        const std::span samples(reinterpret_cast<const std::int16_t*>(data), bytes / 2);
        if (std::all_of(samples.begin(), samples.end(), [](auto sample) { return sample == 0; })) {
            return;
        }
        const std::lock_guard lock(mutex_);
        if (!heard_) {
            heard_ = now;
            changed_.notify_all();
        }
    }
    std::optional<Clock::time_point> Wait() {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, std::chrono::seconds(3), [this] { return heard_.has_value(); });
        return heard_;
    }

private:
    std::mutex mutex_; // guards heard_
    std::condition_variable changed_;
    std::optional<Clock::time_point> heard_;
};

struct Mode {
    const char* name;
    const char* sink; // where the bursts are played
    std::function<bool(AudioCapture&, PcmCallback)> start;
};

// The median in milliseconds, or nothing when a burst went unheard.
std::optional<double> Measure(const Mode& mode) {
    AudioCapture capture;
    BurstEar ear;
    if (!mode.start(capture, [&ear](const std::uint8_t* data, std::uint32_t bytes) {
            ear.Take(data, bytes);
        })) {
        return std::nullopt;
    }
    // Silence, a burst of 30 ms, silence: the player's stream is warm when the burst comes, and
    // the sink is quiet again before the next one.
    const std::size_t lead = kRate / 5;
    std::vector<float> burst(2 * (lead + kRate * 3 / 100 + kRate / 10));
    std::fill_n(burst.begin() + static_cast<std::ptrdiff_t>(2 * lead), 2 * kRate * 3 / 100, 0.5f);
    SoundPlayer player(mode.sink, kRate, 2, 20);
    std::vector<double> delays;
    for (int i = 0; i < kBursts; ++i) {
        ear.Arm();
        player.Play(std::span<const float>(burst));
        const auto heard = ear.Wait();
        const auto handedOver = player.HandedOverAt(lead);
        if (!heard || !handedOver || !player.WaitUntilPlayed()) {
            return std::nullopt;
        }
        delays.push_back(std::chrono::duration<double, std::milli>(*heard - *handedOver).count());
    }
    std::sort(delays.begin(), delays.end());
    std::printf("  %-9s median %5.1f ms, worst of %d bursts %5.1f ms\n", mode.name,
                delays[delays.size() / 2], kBursts, delays.back());
    return delays[delays.size() / 2];
}

} // namespace

// [--limit MS]: exit code 1 when a median lies above.
int main(int argumentCount, char** arguments) {
    const double limitMs = argumentCount == 3 && std::strcmp(arguments[1], "--limit") == 0
                               ? std::stod(arguments[2])
                               : 1e9;
    std::freopen("/dev/null", "w", stderr); // the trace of 120 starts and stops
    SoundServer server;
    server.AddSink("speaker", kRate, 2);
    server.AddMicrophone("mic", kRate, 2);
    server.SetDefaultSink("speaker");
    server.SetDefaultSource("mic");

    const Mode modes[] = {
        {"loopback", "speaker",
         [](AudioCapture& capture, PcmCallback callback) {
             return capture.StartLoopback(TEXT(""), std::move(callback));
         }},
        {"mic", "mic_speaker",
         [](AudioCapture& capture, PcmCallback callback) {
             return capture.StartMic(TEXT(""), std::move(callback));
         }},
        {"mixed", "speaker",
         [](AudioCapture& capture, PcmCallback callback) {
             return capture.StartMixed(TEXT(""), TEXT(""), std::move(callback));
         }},
    };
    std::printf("From handing a sample to the sound server until the consumer has it:\n");
    bool within = true;
    for (const Mode& mode : modes) {
        const auto median = Measure(mode);
        within = within && median && *median <= limitMs;
    }
    if (!within) {
        std::printf("  that is too long, or a burst was not heard\n");
    }
    return within ? 0 : 1;
}

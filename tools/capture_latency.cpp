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
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kBursts = 40;
constexpr int kPlayersBufferMs = 20;
constexpr std::uint32_t kRate = 48000;
constexpr int kAudible = 3000;      // of a burst's 16384; no hiss comes up to it
constexpr float kHiss = 0.001F;     // rms
constexpr double kHissSeconds = 60; // longer than any mode takes

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
        if (std::all_of(samples.begin(), samples.end(),
                        [](auto sample) { return sample < kAudible; })) {
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

// What a real microphone hears in a silent room.
std::vector<float> Hiss() {
    std::mt19937 random(1);
    std::normal_distribution<float> noise(0.0F, kHiss);
    std::vector<float> samples(static_cast<std::size_t>(2 * kRate * kHissSeconds));
    std::generate(samples.begin(), samples.end(), [&] { return noise(random); });
    return samples;
}

struct Mode {
    const char* name;
    const char* sink; // where the bursts are played
    bool micHisses;
    double limitMs; // for the median
    std::function<bool(AudioCapture&, PcmCallback)> start;
};

// The median in milliseconds, or nothing when a burst went unheard.
std::optional<double> Measure(const Mode& mode) {
    std::optional<SoundPlayer> hiss;
    if (mode.micHisses) {
        hiss.emplace("mic_speaker", kRate, 2, 100).Play(Hiss());
    }
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
    SoundPlayer player(mode.sink, kRate, 2, kPlayersBufferMs);
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
    std::printf("  %-25s median %5.1f ms, worst of %d bursts %5.1f ms\n", mode.name,
                delays[delays.size() / 2], kBursts, delays.back());
    return delays[delays.size() / 2];
}

bool StartMixed(AudioCapture& capture, PcmCallback callback) {
    return capture.StartMixed(TEXT(""), TEXT(""), std::move(callback));
}

} // namespace

// Exit code 1 when a median lies above its limit.
int main(int argumentCount, char** arguments) {
    std::map<std::string, std::string> options = {
        {"--limit", "1e9"}, {"--mixed-limit", "1e9"}, {"--server", "pulseaudio"}};
    for (int i = 1; i + 1 < argumentCount; i += 2) {
        options[arguments[i]] = arguments[i + 1];
    }
    if (argumentCount % 2 == 0 || options.size() != 3) {
        std::fputs("Usage: kelvarin-capture-latency [--limit MS] [--mixed-limit MS] "
                   "[--server pulseaudio|pipewire]\n",
                   stderr);
        return 2;
    }
    const double limitMs = std::stod(options["--limit"]);
    const double mixedLimitMs = std::stod(options["--mixed-limit"]);
    if (!std::freopen("/dev/null", "w", stderr)) { // the trace of 160 starts and stops
        return 2;
    }
    SoundServer server(options["--server"] == "pipewire" ? SoundServer::Kind::PipeWire
                                                         : SoundServer::Kind::PulseAudio);
    server.AddSink("speaker", kRate, 2);
    server.AddMicrophone("mic", kRate, 2);
    server.SetDefaultSink("speaker");
    server.SetDefaultSource("mic");

    const Mode modes[] = {
        {"loopback", "speaker", false, limitMs,
         [](AudioCapture& capture, PcmCallback callback) {
             return capture.StartLoopback(TEXT(""), std::move(callback));
         }},
        {"mic", "mic_speaker", false, limitMs,
         [](AudioCapture& capture, PcmCallback callback) {
             return capture.StartMic(TEXT(""), std::move(callback));
         }},
        {"mixed, microphone silent", "speaker", false, mixedLimitMs, StartMixed},
        {"mixed, microphone hisses", "speaker", true, mixedLimitMs, StartMixed},
    };
    std::printf("From handing a sample to the sound server until the consumer has it, the player's "
                "buffer of %d ms included:\n",
                kPlayersBufferMs);
    bool within = true;
    for (const Mode& mode : modes) {
        const auto median = Measure(mode);
        within = within && median && *median <= mode.limitMs;
    }
    if (!within) {
        std::printf("  that is too long, or a burst was not heard\n");
    }
    return within ? 0 : 1;
}

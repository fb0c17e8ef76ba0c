// What becomes of two sources that sound at once: whether they are added, how much sound is
// delivered, and recordings of speech beside a microphone that hisses, as every real one does.
#include "audio_capture.h"
#include "pcm_collector.h"
#include "sound_player.h"
#include "sound_server.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr const char* kUsage =
    "Usage: kelvarin-mixed COMMAND [OPTION VALUE ...]\n"
    "  sums     both sources play a constant: tells in how many packets they were added\n"
    "  drift    the same with a microphone whose clock is --ppm off\n"
    "  record   plays --speech (16 kHz mono raw) beside a hissing microphone, records it at\n"
    "           --phases starts of the two streams into OUT.1, OUT.2 ...\n"
    "  add      writes the same speech with such a hiss really added to OUT.added.1 ...\n"
    "  cost     what listening to silence costs, without what is said to the service\n"
    "  hiss     writes white noise of --rms to the standard output: 48 kHz stereo floats\n"
    "  --server pulseaudio|pipewire (pulseaudio)   --seconds N (5)   --phases N (8)\n"
    "  --ppm N (200)   --rms N (0.001)   --speech FILE   --out OUT\n"
    "  --least PERCENT (0)   of the packets to be added on average\n"
    "  --delivered SHARE (0.99)   of real time\n";

constexpr std::uint32_t kRate = 48000;
constexpr int kPacket = 160;            // samples: 10 ms
constexpr double kSettleSeconds = 0.1;  // of a stream that has just begun
constexpr float kFilm = 0.25F;          // what the loudspeaker plays
constexpr float kVoice = 0.5F;          // what the microphone hears
constexpr double kLeadSeconds = 1;      // of hiss alone before the speech
constexpr double kFragmentMs = 30;      // over which the phases are spread
constexpr double kMostDelivered = 1.02; // of real time

using Options = std::map<std::string, std::string>;

SoundServer::Kind ServerOf(const Options& options) {
    return options.at("--server") == "pipewire" ? SoundServer::Kind::PipeWire
                                                : SoundServer::Kind::PulseAudio;
}

std::vector<float> Constant(float value, double seconds) {
    return std::vector<float>(2 * static_cast<std::size_t>(kRate * seconds), value);
}

std::vector<float> Hiss(double rms, double seconds, unsigned rate, unsigned channels,
                        unsigned seed = 0) {
    std::mt19937 random(seed);
    std::normal_distribution<float> noise(0.0F, static_cast<float>(rms));
    std::vector<float> samples(static_cast<std::size_t>(rate * seconds) * channels);
    for (std::size_t i = 0; i < samples.size(); i += channels) {
        std::fill_n(samples.begin() + static_cast<std::ptrdiff_t>(i), channels, noise(random));
    }
    return samples;
}

// What a capture has delivered since it settled, and how that compares with the time passed.
struct Delivery {
    std::vector<std::int16_t> samples;
    double realTime = 0; // share of the time that passed
};

// Captures both sources for as long as `wait` takes.
template <typename Wait>
Delivery Capture(const Wait& wait) {
    AudioCapture capture;
    PcmCollector pcm;
    if (!capture.StartMixed(
            TEXT(""), TEXT(""),
            [&pcm](const std::uint8_t* data, std::uint32_t bytes) { pcm.Take(data, bytes); })) {
        throw std::runtime_error("no sound to capture");
    }
    const auto settled = static_cast<std::size_t>(16000 * kSettleSeconds);
    if (!pcm.WaitForSamples(settled)) {
        throw std::runtime_error("no sound arrives");
    }
    const std::size_t before = pcm.Samples().size();
    const auto began = Clock::now();
    wait();
    pcm.WaitForSamples(pcm.Samples().size() + 1); // from one arrival to another
    const Seconds took = Clock::now() - began;
    std::vector<std::int16_t> samples = pcm.Samples();
    capture.Stop();
    samples.erase(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(before));
    const double delivered = static_cast<double>(samples.size()) / 16000.0;
    return {std::move(samples), delivered / took.count()};
}

// The share of whole packets in which every sample is the sum of both constants.
double AddedShare(const std::vector<std::int16_t>& samples) {
    constexpr int kSum = static_cast<int>((kFilm + kVoice) * 32767);
    std::size_t added = 0;
    const std::size_t packets = samples.size() / std::size_t{kPacket};
    for (std::size_t packet = 0; packet < packets; ++packet) {
        const auto begin = samples.begin() + static_cast<std::ptrdiff_t>(packet) * kPacket;
        const bool isSum = std::all_of(begin, begin + kPacket, [](std::int16_t sample) {
            return std::abs(sample - kSum) < 300;
        });
        added += isSum ? 1U : 0U;
    }
    return static_cast<double>(added) / static_cast<double>(std::max<std::size_t>(packets, 1));
}

bool IsRealTime(double delivered, const Options& options) {
    return delivered >= std::stod(options.at("--delivered")) && delivered <= kMostDelivered;
}

// Prints how many packets were added, and returns that in per cent.
double Report(const char* what, const Delivery& delivery) {
    const double added = 100 * AddedShare(delivery.samples);
    std::printf("  %-24s added in %6.2f %% of the packets, %.4f of real time delivered\n", what,
                added, delivery.realTime);
    std::fflush(stdout);
    return added;
}

bool IsEnough(double added, const Options& options) {
    return added >= std::stod(options.at("--least"));
}

// ---- Constants ------------------------------------------------------------------------------

bool MeasureSums(const Options& options) {
    const double seconds = std::stod(options.at("--seconds"));
    const int phases = std::stoi(options.at("--phases"));
    double added = 0;
    bool good = true;
    for (int phase = 0; phase < phases; ++phase) {
        SoundServer server(ServerOf(options));
        server.AddSink("speaker", kRate, 2);
        SoundPlayer film("speaker", kRate, 2, 100);
        film.Play(Constant(kFilm, seconds + 5));
        std::this_thread::sleep_for(
            std::chrono::duration<double, std::milli>(phase * kFragmentMs / phases));
        server.AddMicrophone("mic", kRate, 2);
        SoundPlayer voice("mic_speaker", kRate, 2, 100);
        voice.Play(Constant(kVoice, seconds + 5));
        server.SetDefaultSink("speaker");
        server.SetDefaultSource("mic");
        const auto delivery = Capture([seconds] { std::this_thread::sleep_for(Seconds(seconds)); });
        added += Report(("phase " + std::to_string(phase + 1)).c_str(), delivery) / phases;
        good = good && IsRealTime(delivery.realTime, options);
    }
    std::printf("  %-24s added in %6.2f %% of the packets\n", "on average", added);
    return good && IsEnough(added, options);
}

// A microphone that is a file for the server: whoever writes there is its clock.
class DriftingMicrophone {
public:
    DriftingMicrophone(SoundServer& server, double ppm) : server_(server) {
        const std::string path = "/tmp/kelvarin-microphone-" + std::to_string(getpid());
        module_ =
            server_.LoadModule("module-pipe-source",
                               "source_name=mic format=s16le rate=48000 channels=2 file=" + path);
        file_ = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        thread_ = std::thread([this, ppm] { Feed(kRate * (1 + ppm * 1e-6)); });
    }
    ~DriftingMicrophone() {
        ending_ = true;
        thread_.join();
        close(file_);
        server_.UnloadModule(module_);
    }
    DriftingMicrophone(const DriftingMicrophone&) = delete;
    DriftingMicrophone& operator=(const DriftingMicrophone&) = delete;

private:
    void Feed(double rate) {
        const auto value = static_cast<std::int16_t>(kVoice * 32767);
        const auto began = Clock::now();
        std::size_t fed = 0; // frames
        while (!ending_) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            const auto due = static_cast<std::size_t>(Seconds(Clock::now() - began).count() * rate);
            const std::vector<std::int16_t> samples(2 * (due - fed), value);
            // What finds no room is lost, as at a real microphone that nobody listens to.
            [[maybe_unused]] const auto written =
                write(file_, samples.data(), samples.size() * sizeof value);
            fed = due;
        }
    }

    SoundServer& server_;
    SoundServer::Module module_ = 0;
    int file_ = -1;
    std::atomic<bool> ending_{false};
    std::thread thread_;
};

bool MeasureDrift(const Options& options) {
    const double seconds = std::stod(options.at("--seconds"));
    SoundServer server(ServerOf(options));
    server.AddSink("speaker", kRate, 2);
    SoundPlayer film("speaker", kRate, 2, 200);
    film.Play(Constant(kFilm, seconds + 5));
    const DriftingMicrophone microphone(server, std::stod(options.at("--ppm")));
    server.SetDefaultSink("speaker");
    server.SetDefaultSource("mic");
    const auto delivery = Capture([seconds] { std::this_thread::sleep_for(Seconds(seconds)); });
    const double added =
        Report((options.at("--ppm") + " ppm, " + options.at("--seconds") + " s").c_str(), delivery);
    return IsEnough(added, options) && IsRealTime(delivery.realTime, options);
}

// ---- Speech and hiss ------------------------------------------------------------------------

std::vector<std::int16_t> ReadSamples(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    std::vector<std::int16_t> samples(bytes.size() / sizeof(std::int16_t));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(std::int16_t));
    return samples;
}

void WriteSamples(const std::string& path, const std::vector<std::int16_t>& samples) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(samples.data()),
               static_cast<std::streamsize>(samples.size() * sizeof(std::int16_t)));
}

std::int16_t Quantised(float value) {
    return static_cast<std::int16_t>(std::clamp(value * 32767.0F, -32768.0F, 32767.0F));
}

// The speech behind `lead` seconds of the hiss that goes on beside it. A recogniser's errors depend
// on where its frames fall and on each noise a little, so there is one for each recording.
std::vector<std::int16_t> WithHiss(const std::vector<float>& speech, double rms, double lead,
                                   unsigned seed) {
    const double seconds = static_cast<double>(speech.size()) / 16000;
    std::vector<float> sum = Hiss(rms, lead + seconds, 16000, 1, seed);
    const std::size_t before = sum.size() - speech.size();
    for (std::size_t i = 0; i < speech.size(); ++i) {
        sum[before + i] += speech[i];
    }
    std::vector<std::int16_t> samples(sum.size());
    std::transform(sum.begin(), sum.end(), samples.begin(), Quantised);
    return samples;
}

// One process for each phase: the streams of one process keep step with each other.
pid_t StartRecorder(int phase, const Options& options, const int (&end)[2]) {
    const pid_t process = fork();
    if (process != 0) {
        return process;
    }
    close(end[1]);
    std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(
        phase * kFragmentMs / std::stoi(options.at("--phases"))));
    int code = 1;
    try {
        const auto delivery = Capture([&end] {
            char none = 0;
            [[maybe_unused]] const auto over = read(end[0], &none, 1); // until the parent closes
        });
        WriteSamples(options.at("--out") + "." + std::to_string(phase + 1), delivery.samples);
        const bool good = IsRealTime(delivery.realTime, options);
        std::printf("  phase %d: %.4f of real time delivered%s\n", phase + 1, delivery.realTime,
                    good ? "" : ", which it should not");
        code = good ? 0 : 1;
    } catch (const std::runtime_error& error) {
        std::printf("  phase %d: %s\n", phase + 1, error.what());
    }
    std::fflush(stdout);
    _exit(code);
}

// The speech as the loudspeaker plays it.
std::vector<float> ReadSpeech(const Options& options) {
    const std::vector<std::int16_t> samples = ReadSamples(options.at("--speech"));
    if (samples.empty()) {
        throw std::runtime_error(options.at("--speech") + ": no sound");
    }
    std::vector<float> speech(samples.size());
    std::transform(samples.begin(), samples.end(), speech.begin(),
                   [](std::int16_t sample) { return static_cast<float>(sample) / 32768.0F; });
    return speech;
}

bool Add(const Options& options) {
    const std::vector<float> speech = ReadSpeech(options);
    const int phases = std::stoi(options.at("--phases"));
    for (int phase = 0; phase < phases; ++phase) {
        WriteSamples(options.at("--out") + ".added." + std::to_string(phase + 1),
                     WithHiss(speech, std::stod(options.at("--rms")),
                              kLeadSeconds + phase * kFragmentMs / phases / 1000,
                              static_cast<unsigned>(phase)));
    }
    return true;
}

bool Record(const Options& options) {
    const std::vector<float> played = ReadSpeech(options);
    const double rms = std::stod(options.at("--rms"));
    const double seconds = static_cast<double>(played.size()) / 16000;
    const int phases = std::stoi(options.at("--phases"));
    SoundServer server(ServerOf(options));
    server.AddSink("speaker", kRate, 2);
    server.AddMicrophone("mic", kRate, 2);
    server.SetDefaultSink("speaker");
    server.SetDefaultSource("mic");
    int end[2] = {};
    if (pipe(end) != 0) {
        throw std::runtime_error("no pipe");
    }
    std::vector<pid_t> recorders;
    for (int phase = 0; phase < phases; ++phase) {
        recorders.push_back(StartRecorder(phase, options, end));
    }
    close(end[0]);
    SoundPlayer voice("mic_speaker", kRate, 2, 100);
    voice.Play(Hiss(rms, seconds + 5, kRate, 2));
    std::this_thread::sleep_for(Seconds(kLeadSeconds)); // every recorder has settled
    SoundPlayer film("speaker", 16000, 1, 100);
    film.Play(played);
    film.WaitUntilPlayed(std::chrono::seconds(static_cast<int>(seconds) + 5));
    std::this_thread::sleep_for(Seconds(0.3)); // the last of it is on its way
    close(end[1]);
    bool good = true;
    for (const pid_t recorder : recorders) {
        int state = 0;
        waitpid(recorder, &state, 0);
        good = good && WIFEXITED(state) && WEXITSTATUS(state) == 0;
    }
    return good;
}

// Of a core, while nothing sounds.
bool MeasureCost(const Options& options) {
    const double seconds = std::stod(options.at("--seconds"));
    SoundServer server(ServerOf(options));
    server.AddSink("speaker", kRate, 2);
    server.AddMicrophone("mic", kRate, 2);
    const struct {
        const char* name;
        bool (*start)(AudioCapture& capture);
    } modes[] = {
        {"loopback", [](AudioCapture& capture) { return capture.StartLoopback(TEXT(""), {}); }},
        {"microphone", [](AudioCapture& capture) { return capture.StartMic(TEXT(""), {}); }},
        {"mixed", [](AudioCapture& capture) { return capture.StartMixed(TEXT(""), TEXT(""), {}); }},
    };
    for (const auto& mode : modes) {
        AudioCapture capture;
        if (!mode.start(capture)) {
            throw std::runtime_error("no sound to capture");
        }
        std::this_thread::sleep_for(Seconds(1));
        const std::clock_t before = std::clock();
        std::this_thread::sleep_for(Seconds(seconds));
        const double used = static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC;
        std::printf("  %-12s %5.2f %% of a core\n", mode.name, 100 * used / seconds);
    }
    return true;
}

// In pieces: whoever plays it need not wait until all of it is made.
bool WriteHiss(const Options& options) {
    constexpr double kPiece = 0.1; // seconds
    const double rms = std::stod(options.at("--rms"));
    const auto pieces = static_cast<unsigned>(std::stod(options.at("--seconds")) / kPiece);
    bool written = true;
    for (unsigned piece = 0; written && piece < pieces; ++piece) {
        const std::vector<float> noise = Hiss(rms, kPiece, kRate, 2, piece);
        written = std::fwrite(noise.data(), sizeof noise[0], noise.size(), stdout) == noise.size();
    }
    return written;
}

} // namespace

// Exit code 1 when --least or --delivered is not reached, or more than real time is delivered.
int main(int argumentCount, char** arguments) {
    const std::map<std::string, bool (*)(const Options&)> commands = {
        {"sums", MeasureSums}, {"drift", MeasureDrift}, {"record", Record},
        {"add", Add},          {"cost", MeasureCost},   {"hiss", WriteHiss}};
    Options options = {
        {"--server", "pulseaudio"}, {"--seconds", "5"}, {"--phases", "8"}, {"--ppm", "200"},
        {"--rms", "0.001"},         {"--speech", ""},   {"--out", ""},     {"--least", "0"},
        {"--delivered", "0.99"}};
    const auto command = commands.find(argumentCount > 1 ? arguments[1] : "");
    bool understood = command != commands.end() && argumentCount % 2 == 0;
    for (int i = 2; understood && i < argumentCount; i += 2) {
        understood = options.count(arguments[i]) > 0;
        options[arguments[i]] = arguments[i + 1];
    }
    if (!understood) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);
    if (!std::freopen("/dev/null", "w", stderr)) { // the trace of many starts and stops
        return 2;
    }
    try {
        return command->second(options) ? 0 : 1;
    } catch (const std::exception& error) {
        std::printf("  failed: %s\n", error.what());
        return 1;
    }
}

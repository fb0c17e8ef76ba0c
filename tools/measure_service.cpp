// Measures a running service as its users and as strangers meet it: speakers at real-time pace over
// TLS, newcomers, and crowds that want to shut them out. Prints one line for each measurement.
//
//   measure-service PROGRAM speakers COUNT SECONDS
//   measure-service PROGRAM strangers KIND COUNT SECONDS    (see kCrowds)
//   measure-service PROGRAM mutants COUNT SECONDS           whichever is reached first
#include "child_process.h"
#include "file_descriptor.h"
#include "scratch_folder.h"
#include "speaking_client.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <thread>

namespace service {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr std::size_t kOthersDecoders = 4; // two keys have two sessions each
constexpr const char* kSpeechKey = "key-of-speaker-number-";
constexpr const char* kNewcomersKey = "key-of-the-newcomers";
constexpr const char* kFloodersKey = "key-of-the-flooders-";

// ---- The service --------------------------------------------------------------------------------

class Service {
public:
    Service(std::string program, std::size_t speakers, std::size_t decoders, bool plain)
        : program_(std::move(program)) {
        for (std::size_t i = 0; i < speakers; ++i) {
            Run({"keys", "add", kSpeechKey + std::to_string(i), "--database", Database()});
        }
        for (const char* const key : {kNewcomersKey, kFloodersKey}) {
            Run({"keys", "add", key, "--database", Database()});
        }
        std::vector<std::string> words = {
            "serve",      "--port",  "0", "--decoders", std::to_string(decoders),
            "--database", Database()};
        if (plain) {
            words.emplace_back("--plain");
        } else {
            Run({"certificate", folder_.Path()});
            words.insert(words.end(), {"--certificate", folder_ / "server.pem", "--key",
                                       folder_ / "server.key"});
        }
        Start(words);
        const std::string line = Line();
        port_ = std::stoi(line.substr(line.rfind(':') + 1));
    }

    int Port() const { return port_; }
    std::string Authority() const { return folder_ / "ca.pem"; }

    // The service's own process alone, in kilobytes.
    long ResidentKilobytes() const {
        return Field("/proc/" + std::to_string(process_->Id()) + "/status", "VmRSS:");
    }

    // With all that it has started, in what they do not share, in kilobytes.
    long ProportionalKilobytes() const {
        long sum = 0;
        for (const pid_t process : WithChildren()) {
            sum += Field("/proc/" + std::to_string(process) + "/smaps_rollup", "Pss:");
        }
        return sum;
    }

    std::size_t Processes() const { return WithChildren().size(); }

    // Of the service and of what it has started, since then.
    double ProcessorSeconds() const {
        double ticks = 0;
        for (const pid_t process : WithChildren()) {
            std::ifstream file("/proc/" + std::to_string(process) + "/stat");
            std::string skipped;
            std::getline(file, skipped, ')');
            for (int field = 3; field < 14; ++field) {
                file >> skipped;
            }
            double user = 0;
            double system = 0;
            file >> user >> system;
            ticks += user + system;
        }
        return ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
    }

    // The exit code after SIGTERM, -1 when a signal ended it. What its log has besides sessions
    // goes to standard error.
    int End() const {
        ::kill(process_->Id(), SIGTERM);
        siginfo_t info{};
        ::waitid(P_PID, static_cast<id_t>(process_->Id()), &info, WEXITED | WNOWAIT);
        std::ifstream log(Log());
        for (std::string line; std::getline(log, line);) {
            if (line.find(" session ") == std::string::npos) {
                std::cerr << line << '\n'; // all that is not of every day
            }
        }
        return info.si_code == CLD_EXITED ? info.si_status : -1;
    }

private:
    std::string Database() const { return folder_ / "accounts.db"; }
    std::string Log() const { return folder_ / "log"; }

    void Start(std::vector<std::string> words) {
        // A child's own standard error is closed.
        words.insert(words.begin(), {"sh", "-c", R"(exec "$@" 2>>"$0")", Log(), program_});
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
        output_ = FileDescriptor(ends[0]);
        const FileDescriptor childEnd(ends[1]);
        process_.emplace(words, STDIN_FILENO, childEnd.Get());
    }

    void Run(const std::vector<std::string>& words) {
        Start(words);
        siginfo_t info{};
        ::waitid(P_PID, static_cast<id_t>(process_->Id()), &info, WEXITED | WNOWAIT);
        if (info.si_code != CLD_EXITED || info.si_status != 0) {
            throw std::runtime_error(words[0] + " failed");
        }
    }

    std::string Line() const {
        std::string line;
        for (char letter = 0; ::read(output_.Get(), &letter, 1) == 1 && letter != '\n';) {
            line += letter;
        }
        return line;
    }

    static long Field(const std::string& path, const std::string& name) {
        std::ifstream file(path);
        for (std::string word; file >> word;) {
            long value = 0;
            if (word == name && file >> value) {
                return value;
            }
        }
        return 0;
    }

    std::vector<pid_t> WithChildren() const {
        std::vector<pid_t> all = {process_->Id()};
        for (const auto& entry : fs::directory_iterator("/proc")) {
            const pid_t process = std::atoi(entry.path().filename().c_str());
            if (process > 0 && Field(entry.path() / "status", "PPid:") == process_->Id()) {
                all.push_back(process);
            }
        }
        return all;
    }

    std::string program_;
    ScratchFolder folder_;
    FileDescriptor output_;
    std::optional<ChildProcess> process_;
    int port_ = 0;
};

// ---- Times --------------------------------------------------------------------------------------

class Times {
public:
    void Add(Clock::duration time) {
        const std::lock_guard lock(mutex_);
        seconds_.push_back(std::chrono::duration<double>(time).count());
    }

    void AddFailure() { ++failures_; }

    std::size_t Count() const { return seconds_.size(); }
    int Failures() const { return failures_; }

    std::size_t LongerThan(double seconds) const {
        return static_cast<std::size_t>(
            std::ranges::count_if(seconds_, [&](double time) { return time > seconds; }));
    }

    // In milliseconds; a share of 1 is the longest.
    double Quantile(double share) {
        if (seconds_.empty()) {
            return -1;
        }
        std::ranges::sort(seconds_);
        const auto last = static_cast<double>(seconds_.size() - 1);
        return 1000 * seconds_[static_cast<std::size_t>(std::ceil(share * last))];
    }

private:
    std::mutex mutex_;
    std::vector<double> seconds_;
    std::atomic<int> failures_ = 0;
};

// ---- Those who use it ---------------------------------------------------------------------------

std::unique_ptr<httplib::Client> Connect(const Service& service) {
    return ConnectTo("https://127.0.0.1:" + std::to_string(service.Port()), service.Authority());
}

struct Speech {
    Times lags; // from the capture of an exchange's last sample to its answer
    std::atomic<std::size_t> exchanges = 0;
    std::atomic<std::size_t> captions = 0;
    std::atomic<std::size_t> refused = 0; // sessions
};

// Speaks as a live client does: what has been captured, in steps of 10 ms, one exchange behind the
// other.
void Speak(const Service& service, std::size_t number, std::span<const std::int16_t> speech,
           Clock::time_point begin, Clock::time_point end, Speech& result) {
    const std::string key = kSpeechKey + std::to_string(number);
    const auto client = Connect(service);
    const std::string id = StartSession(*client, key);
    if (id.empty()) {
        ++result.refused;
        return;
    }
    std::this_thread::sleep_until(begin);
    const Clock::time_point started = Clock::now();
    std::size_t sent = 0;
    while (Clock::now() < end) {
        const std::chrono::duration<double> passed = Clock::now() - started;
        const std::size_t captured =
            static_cast<std::size_t>(passed.count() * 100) * (kRate / 100); // whole steps
        if (captured == sent) {
            std::this_thread::sleep_for(1ms);
            continue;
        }
        const std::size_t count = std::min(captured - sent, kLargestSlice);
        std::vector<std::int16_t> slice(count);
        for (std::size_t i = 0; i < count; ++i) {
            slice[i] = speech[(number * 5 * kRate + sent + i) % speech.size()];
        }
        const auto answer = Exchange(*client, key, id, slice);
        sent += count;
        const auto capture = started + std::chrono::milliseconds(sent / (kRate / 1000));
        if (!answer || answer->status != 200) {
            result.lags.AddFailure();
            continue;
        }
        ++result.exchanges;
        result.lags.Add(Clock::now() - capture);
        result.captions += CaptionsIn(answer->body);
    }
    StopSession(*client, key, id);
}

// Somebody who comes, has a key checked, starts and leaves; again and again.
void ComeAndGo(const Service& service, Clock::time_point end, Times& times) {
    while (Clock::now() < end) {
        const auto begun = Clock::now();
        const auto client = Connect(service);
        const auto status = client->Get(std::string("/key/status?access_key=") + kNewcomersKey);
        const std::string id = StartSession(*client, kNewcomersKey);
        if (status && status->status == 200 && !id.empty()) {
            times.Add(Clock::now() - begun);
            StopSession(*client, kNewcomersKey, id);
        } else {
            times.AddFailure();
        }
        std::this_thread::sleep_for(100ms);
    }
}

// ---- Those who want to shut them out ------------------------------------------------------------

FileDescriptor Dial(int port) {
    FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval patience{2, 0};
    ::setsockopt(socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ::setsockopt(socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return {};
    }
    return socket;
}

template <auto Release>
struct ReleaseWith {
    template <typename Object>
    void operator()(Object* object) const {
        Release(object);
    }
};
using TlsContext = std::unique_ptr<SSL_CTX, ReleaseWith<SSL_CTX_free>>;
using Tls = std::unique_ptr<SSL, ReleaseWith<SSL_free>>;

struct Stranger {
    FileDescriptor socket;
    Tls tls;
};

struct Crowd {
    std::string_view kind;
    bool greets;             // finishes the handshake
    std::string_view first;  // sent once
    std::string_view always; // sent again and again, as long as the connection lives
};

constexpr std::array kCrowds = {
    Crowd{"silent", false, "", ""},
    Crowd{"handshakes", false, "\x16\x03\x01\x02", ""},
    Crowd{"idle", true, "GET /key/status HTTP/1.1\r\n\r\n", ""},
    Crowd{"heads", true, "GET /key/status HTTP/1.1\r\nX: ", "x"},
    Crowd{"bodies", true,
          "POST /session/exchange HTTP/1.1\r\nContent-Length: 40000\r\n\r\n{\"access_key\":\"",
          "x"},
};

bool Send(const Stranger& stranger, std::string_view bytes) {
    if (bytes.empty()) {
        return true;
    }
    const int count = static_cast<int>(bytes.size());
    return stranger.tls
               ? SSL_write(stranger.tls.get(), bytes.data(), count) == count
               : ::send(stranger.socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == count;
}

bool HasHungUp(const Stranger& stranger) {
    std::array<char, 1024> ignored{};
    while (true) {
        const ssize_t count =
            ::recv(stranger.socket.Get(), ignored.data(), ignored.size(), MSG_DONTWAIT | MSG_PEEK);
        if (count < 0) {
            return errno != EAGAIN;
        }
        if (count == 0) {
            return true;
        }
        if (!stranger.tls) {
            return false;
        }
        // An answer, or a session ticket. What is left after that is looked at the next time.
        return SSL_read(stranger.tls.get(), ignored.data(), static_cast<int>(ignored.size())) <= 0;
    }
}

// Keeps its number of connections, and comes again with those that the service closes.
void Press(const Service& service, const Crowd& crowd, std::size_t count, Clock::time_point end,
           std::atomic<std::size_t>& opened) {
    const TlsContext context(SSL_CTX_new(TLS_client_method()));
    std::vector<Stranger> strangers(count);
    auto next = Clock::now();
    while (Clock::now() < end) {
        for (Stranger& stranger : strangers) {
            if (Clock::now() >= end) {
                return;
            }
            if (stranger.socket && !HasHungUp(stranger)) {
                Send(stranger, crowd.always);
                continue;
            }
            stranger = {Dial(service.Port()), nullptr};
            if (!stranger.socket) {
                continue;
            }
            ++opened;
            if (crowd.greets) {
                stranger.tls.reset(SSL_new(context.get()));
                SSL_set_fd(stranger.tls.get(), stranger.socket.Get());
                if (SSL_connect(stranger.tls.get()) != 1) {
                    stranger = {};
                    continue;
                }
            }
            Send(stranger, crowd.first);
        }
        next += 500ms;
        std::this_thread::sleep_until(std::min(next, end));
    }
}

// A key that starts and stops as fast as it is let.
void Flood(const Service& service, Clock::time_point end, std::atomic<std::size_t>& opened) {
    const auto client = Connect(service);
    while (Clock::now() < end) {
        const std::string id = StartSession(*client, kFloodersKey);
        if (!id.empty()) {
            StopSession(*client, kFloodersKey, id);
            ++opened;
        }
    }
}

// Two sessions of one key that bring a second of audio with each exchange, back to back.
void Rush(const Service& service, std::span<const std::int16_t> speech, Clock::time_point end,
          std::atomic<std::size_t>& opened) {
    const auto client = Connect(service);
    const std::string id = StartSession(*client, kFloodersKey);
    while (Clock::now() < end) {
        Exchange(*client, kFloodersKey, id, speech.first(kLargestSlice));
        ++opened;
    }
}

// ---- Requests that are nearly right -------------------------------------------------------------

class Mutator {
public:
    explicit Mutator(unsigned int seed) : random_(seed) {}

    std::string Next(const std::vector<std::string>& whole) {
        std::string text = whole[Below(whole.size())];
        for (std::size_t changes = Below(6); changes > 0; --changes) {
            Change(text, whole[Below(whole.size())]);
        }
        return text;
    }

    std::size_t Below(std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_);
    }

private:
    void Change(std::string& text, const std::string& other) {
        static constexpr std::array<std::string_view, 14> kPieces = {
            "\r\n",
            "\r\n\r\n",
            "Content-Length: 99999999999999999999\r\n",
            "Content-Length: 0\r\n",
            "Transfer-Encoding: chunked\r\n",
            "Transfer-Encoding: gzip, chunked\r\n",
            "{",
            "[",
            "\"",
            "\\ud800",
            "\xFF",
            "0\r\n\r\n",
            "Expect: 100-continue\r\n",
            "FFFFFFFFFFFFFFFF\r\n"};
        const std::size_t at = Below(text.size() + 1);
        switch (Below(7)) {
        case 0:
            text.insert(at, 1, static_cast<char>(Below(256)));
            break;
        case 1:
            text.erase(at, 1 + Below(20));
            break;
        case 2:
            text.insert(at, kPieces[Below(kPieces.size())]);
            break;
        case 3:
            text.insert(at, text.substr(Below(text.size() + 1), Below(200)));
            break;
        case 4:
            text.resize(at);
            break;
        case 5:
            text = text.substr(0, at) + other.substr(Below(other.size()));
            break;
        default:
            if (at < text.size()) {
                const unsigned int byte = static_cast<unsigned char>(text[at]);
                text[at] = static_cast<char>(byte ^ (1U << Below(8)));
            }
        }
        if (text.empty()) {
            text = "\n";
        }
    }

    std::mt19937 random_;
};

std::string Request(const std::string& operation, const std::string& body) {
    return "POST /session/" + operation + " HTTP/1.1\r\nHost: localhost\r\nContent-Type: " +
           "application/json\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

// What has come until the other side hangs up.
std::string Ask(int port, const std::string& request) {
    const FileDescriptor socket = Dial(port);
    ::send(socket.Get(), request.data(), request.size(), MSG_NOSIGNAL);
    ::shutdown(socket.Get(), SHUT_WR);
    std::string answer;
    std::array<char, 4096> buffer{};
    for (ssize_t count = 1; count > 0;) {
        count = ::recv(socket.Get(), buffer.data(), buffer.size(), 0);
        answer.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    return answer;
}

std::vector<std::string> WholeRequests(int port) {
    const std::string key = std::string(R"({"access_key":")") + kFloodersKey + '"';
    const std::string languages =
        R"(,"lang_a":"en-US","lang_a_tgt":"en","lang_b":"es-ES","lang_b_tgt":"es"})";
    const std::string started = Ask(port, Request("start", key + languages));
    const std::size_t id = started.find(R"("session_id":")");
    const std::string session =
        R"(,"session_id":")" + (id == std::string::npos ? "" : started.substr(id + 14, 32)) + '"';
    const std::vector<std::int16_t> silence(800);
    return {
        "GET /key/status?access_key=" + std::string(kFloodersKey) + " HTTP/1.1\r\nHost: x\r\n\r\n",
        Request("start", key + languages),
        Request("exchange", key + session + R"(,"audio_b64":")" + Base64(silence) + "\"}"),
        Request("exchange", key + session + R"(,"audio_b64":""})"),
        Request("stop", key + session + "}"),
        "POST /session/exchange HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n10\r\n" +
            std::string(16, '{') + "\r\n0\r\n\r\n",
    };
}

void SendMutants(int port, unsigned int seed, std::size_t count, Clock::time_point end,
                 std::atomic<std::size_t>& sent) {
    Mutator mutator(seed);
    std::vector<std::string> whole = WholeRequests(port);
    for (std::size_t i = 0; i < count && Clock::now() < end; ++i) {
        if (i % 500 == 499) {
            whole = WholeRequests(port); // a session that was stopped by one of them
        }
        Ask(port, mutator.Next(whole));
        ++sent;
    }
}

// ---- Measurements -------------------------------------------------------------------------------

Clock::time_point After(int seconds) {
    return Clock::now() + std::chrono::seconds(seconds);
}

int MeasureSpeakers(const std::string& program, std::size_t count, int seconds) {
    const Service service(program, count, count, false);
    const std::vector<std::int16_t> speech = AllSpeech();
    Speech result;
    const auto begin = After(3 + static_cast<int>(count) / 2);
    const auto end = begin + std::chrono::seconds(seconds);
    std::vector<std::jthread> speakers;
    for (std::size_t i = 0; i < count; ++i) {
        speakers.emplace_back([&, i] { Speak(service, i, speech, begin, end, result); });
    }
    std::this_thread::sleep_until(begin + 2s);
    const double before = service.ProcessorSeconds();
    std::this_thread::sleep_until(end - 1s);
    const double cores = (service.ProcessorSeconds() - before) / (seconds - 3);
    const long memory = service.ProportionalKilobytes() / 1024;
    const std::size_t processes = service.Processes();
    speakers.clear();
    std::printf("%2zu sessions: answers %.0f ms at 50 %%, %.0f at 99 %%, %.0f at most, %zu of %zu "
                "later than 1 s, %d failed, %zu refused; %.2f cores; %ld MB, %zu processes; %zu "
                "captions, %.0f exchanges/s\n",
                count, result.lags.Quantile(0.5), result.lags.Quantile(0.99),
                result.lags.Quantile(1), result.lags.LongerThan(1), result.lags.Count(),
                result.lags.Failures(), result.refused.load(), cores, memory, processes,
                result.captions.load(), static_cast<double>(result.exchanges) / seconds);
    return service.End() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int MeasureStrangers(const std::string& program, const std::string& kind, std::size_t count,
                     int seconds) {
    const Service service(program, 1, 1 + kOthersDecoders, false);
    const std::vector<std::int16_t> speech = AllSpeech();
    Speech alone;
    Speech beside;
    Times newcomersAlone;
    Times newcomers;
    const auto speakFor = [&](Speech& result, Times& times, const std::function<void()>& crowd) {
        const auto end = After(seconds);
        std::jthread speaker([&] { Speak(service, 0, speech, Clock::now(), end, result); });
        std::jthread comer([&] { ComeAndGo(service, end, times); });
        crowd();
        std::this_thread::sleep_until(end - 500ms);
    };
    speakFor(alone, newcomersAlone, [] {});
    const long honest = service.ResidentKilobytes();

    std::atomic<std::size_t> opened = 0;
    std::atomic<long> most = 0;
    const auto end = After(seconds);
    std::vector<std::jthread> crowd;
    const auto* const known = std::ranges::find(kCrowds, kind, &Crowd::kind);
    if (known != kCrowds.end()) {
        crowd.emplace_back([&] { Press(service, *known, count, end, opened); });
    }
    for (std::size_t i = 0; i < count && kind == "starts"; ++i) {
        crowd.emplace_back([&] { Flood(service, end, opened); });
    }
    for (std::size_t i = 0; i < count && kind == "rush"; ++i) {
        crowd.emplace_back([&] { Rush(service, speech, end, opened); });
    }
    if (crowd.empty()) {
        throw std::runtime_error("there is no crowd of that kind: " + kind);
    }
    speakFor(beside, newcomers, [&] {
        while (Clock::now() < end - 1s) {
            most = std::max(most.load(), service.ResidentKilobytes());
            std::this_thread::sleep_for(50ms);
        }
    });
    crowd.clear();
    std::this_thread::sleep_for(12s); // idle ones rest for ten
    std::printf(
        "%zu %s (%zu opened): captions' answers %.0f ms at 99 %% (alone %.0f), %.0f at most "
        "(alone %.0f), %d failed; newcomers %.0f ms at 99 %% (alone %.0f), %d of %zu failed; "
        "%ld MB at most, %.2f times the honest load, %ld MB afterwards\n",
        count, kind.c_str(), opened.load(), beside.lags.Quantile(0.99), alone.lags.Quantile(0.99),
        beside.lags.Quantile(1), alone.lags.Quantile(1), beside.lags.Failures(),
        newcomers.Quantile(0.99), newcomersAlone.Quantile(0.99), newcomers.Failures(),
        newcomers.Count(), most.load() / 1024,
        static_cast<double>(most) / static_cast<double>(honest),
        service.ResidentKilobytes() / 1024);
    return service.End() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int MeasureMutants(const std::string& program, std::size_t count, int seconds) {
    const Service service(program, 1, 1 + kOthersDecoders, true);
    const long before = service.ResidentKilobytes();
    std::atomic<std::size_t> sent = 0;
    const auto begun = Clock::now();
    {
        constexpr std::size_t kThreads = 4;
        std::vector<std::jthread> threads;
        const unsigned int seed = std::random_device()();
        std::printf("seed %u\n", seed);
        for (unsigned int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&, i] {
                SendMutants(service.Port(), seed + i, count / kThreads, After(seconds), sent);
            });
        }
    }
    const std::string good = Ask(service.Port(), WholeRequests(service.Port())[0]);
    const long after = service.ResidentKilobytes();
    const int code = service.End();
    std::printf("%zu mutated requests in %.0f s; afterwards a good key is %s; %ld MB before, %ld "
                "after; exit code %d\n",
                sent.load(), std::chrono::duration<double>(Clock::now() - begun).count(),
                good.find("\"valid\":true") == std::string::npos ? "REFUSED" : "valid",
                before / 1024, after / 1024, code);
    return code == 0 && good.find("\"valid\":true") != std::string::npos ? EXIT_SUCCESS
                                                                         : EXIT_FAILURE;
}

int Run(const std::vector<std::string>& words) {
    if (words.size() == 5 && words[2] == "speakers") {
        return MeasureSpeakers(words[1], std::stoul(words[3]), std::stoi(words[4]));
    }
    if (words.size() == 6 && words[2] == "strangers") {
        return MeasureStrangers(words[1], words[3], std::stoul(words[4]), std::stoi(words[5]));
    }
    if (words.size() == 5 && words[2] == "mutants") {
        return MeasureMutants(words[1], std::stoul(words[3]), std::stoi(words[4]));
    }
    throw std::runtime_error("what is to be measured?");
}

} // namespace
} // namespace service

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return service::Run({argv, argv + argc});
    } catch (const std::exception& error) {
        std::cerr << "measure-service: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}

#include "serve.h"

#include "certificate.h"
#include "chain_pool.h"
#include "decoder_pool.h"
#include "http_api.h"
#include "ledger.h"
#include "log.h"
#include "metrics.h"
#include "open_accounts.h"
#include "sessions.h"
#include "settings.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace service {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Storing is tried again each second, so there is no need to wait for long.
constexpr auto kStorePatience = 500ms;
constexpr auto kFarStorePatience = 2s; // by a network
constexpr auto kWhileDraining = 100ms;
constexpr auto kLastSentences = 2s;
constexpr auto kMinute = 60s;
constexpr auto kDay = std::chrono::seconds(24h);
constexpr auto kWarnOfCertificate = 30 * kDay;

std::string Listening(const Settings& settings, int port) {
    const bool bracketed = settings.address.find(':') != std::string::npos;
    return std::string("kelvarin-service listening on ") + (settings.tls ? "https://" : "http://") +
           (bracketed ? "[" + settings.address + "]" : settings.address) + ":" +
           std::to_string(port);
}

// Clients cannot tell an expired certificate from a service that is gone.
void WarnOfCertificate(const Settings& settings) {
    if (!settings.tls) {
        return;
    }
    const std::string file = settings.tls->certificate.string();
    const auto left = TimeLeft(settings.tls->certificate);
    if (!left) {
        Log("error: the certificate " + file + " cannot be read any more");
    } else if (*left < 0s) {
        Log("error: the certificate " + file + " has expired: no client connects any more");
    } else if (*left < kWarnOfCertificate) {
        Log("the certificate " + file + " expires in " + std::to_string(*left / kDay) + " days");
    }
}

// Blocked before any thread is made, so that all threads inherit it and only this one waits for
// them.
class Signals {
public:
    Signals() {
        sigemptyset(&signals_);
        for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1}) {
            sigaddset(&signals_, signal);
        }
        pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        std::signal(SIGPIPE, SIG_IGN); // a client that hung up is no reason to die
    }

    // The next one, or nothing at that time.
    std::optional<int> WaitUntil(Clock::time_point time) const {
        const auto left = std::max<Clock::duration>(time - Clock::now(), 0ns);
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        const timespec wait{seconds.count(), (left - seconds).count()};
        const int signal = sigtimedwait(&signals_, nullptr, &wait);
        return signal > 0 ? std::optional(signal) : std::nullopt;
    }

private:
    sigset_t signals_{};
};

// A server of figures, for the programs of this computer alone.
class MetricsServer {
public:
    MetricsServer(int port, const HttpApi& api, const Sessions& sessions)
        : server_(std::nullopt, {},
                  [&api, &sessions](const HttpRequest& request, const HttpServer::Reply& reply) {
                      HttpAnswer answer;
                      answer.status = request.target == "/metrics" ? 200 : 404;
                      answer.contentType = "text/plain; version=0.0.4; charset=utf-8";
                      answer.body =
                          answer.status == 200 ? Metrics(api, sessions) : "Only /metrics is here.";
                      reply(answer);
                  }) {
        const int bound = server_.Bind("127.0.0.1", port);
        Log("metrics on http://127.0.0.1:" + std::to_string(bound) + "/metrics");
        serving_ = std::jthread([this] { server_.Serve(); });
    }
    MetricsServer(const MetricsServer&) = delete;
    MetricsServer& operator=(const MetricsServer&) = delete;
    ~MetricsServer() { server_.Stop(); }

private:
    HttpServer server_;
    std::jthread serving_; // last: it ends before what it serves
};

// The rooms of a service, and what happens to them while it serves.
class Serving {
public:
    explicit Serving(const CommandLine& line)
        : line_(line), settings_(ReadSettings(line)),
          accounts_(
              OpenAccounts(line, settings_.accounts.empty() ? kStorePatience : kFarStorePatience)),
          decoders_(settings_.decoders), ledger_(*accounts_),
          sessions_(ledger_, decoders_, chains_, {}, settings_.instance),
          api_(ledger_, sessions_, settings_.tls, settings_.decoders) {
        decoders_.LoadOne(); // the first session need not wait, and a broken model shows now
        const int port = api_.Bind(settings_.address, settings_.port);
        OpenMetrics();
        serving_ = std::jthread([this] { api_.Serve(); });
        std::cout << Listening(settings_, port) << std::endl;
        LoadDecoders();
        WarnOfCertificate(settings_);
    }

    // What cannot be taken is left as it was, and the log says so.
    void ReadAgain() {
        try {
            const Settings settings = ReadSettings(line_);
            if (settings.tls.has_value() != settings_.tls.has_value()) {
                throw std::runtime_error("with or without TLS is a matter of a new start");
            }
            if (settings.accounts != settings_.accounts ||
                settings.instance != settings_.instance) {
                throw std::runtime_error("other accounts or another name are a matter of a new "
                                         "start");
            }
            if (settings.tls) {
                api_.UseCertificate(*settings.tls);
            }
            if (!settings.SamePlace(settings_)) {
                api_.Rebind(settings.address, settings.port);
            }
            decoders_.SetCapacity(settings.decoders);
            LoadDecoders();
            api_.SetSessionsAtOnce(settings.decoders);
            const bool sameMetrics = settings.metricsPort == settings_.metricsPort;
            settings_ = settings;
            if (!sameMetrics) {
                OpenMetrics();
            }
            Log("certificate and settings are read again");
            WarnOfCertificate(settings_);
        } catch (const std::exception& failure) {
            Log(std::string("error: settings are left as they were: ") + failure.what());
        }
    }

    void EachMinute() {
        api_.LogRefusedKeys();
        if (Clock::now() - certificateSeen_ >= kDay) {
            certificateSeen_ = Clock::now();
            WarnOfCertificate(settings_);
        }
    }

    // Nobody starts any more. To be asked from time to time whether the last one has ended.
    void Drain() {
        Log("nobody is let in any more; the service ends with its last session");
        sessions_.Close();
    }
    bool IsEmpty() const { return sessions_.Figures().sessions == 0; }

    void End() {
        api_.StopAccepting();
        sessions_.EndAll(kLastSentences);
        api_.Stop();
        serving_.join();
        api_.LogRefusedKeys();
    }

private:
    // All of them, beside what is served meanwhile: nobody who starts later waits for one, and what
    // memory the sessions need is known before there are any.
    void LoadDecoders() {
        loading_ = std::jthread([this](const std::stop_token& stop) {
            try {
                while (!stop.stop_requested() && decoders_.LoadOne()) {
                }
            } catch (const std::exception& failure) {
                Log(std::string("error: ") + failure.what());
            }
        });
    }

    void OpenMetrics() {
        metrics_.reset();
        if (settings_.metricsPort) {
            metrics_.emplace(*settings_.metricsPort, api_, sessions_);
        }
    }

    const CommandLine& line_;
    Settings settings_;
    std::unique_ptr<Accounts> accounts_;
    DecoderPool decoders_;
    Ledger ledger_;
    ChainPool chains_;
    Sessions sessions_;
    HttpApi api_;
    std::optional<MetricsServer> metrics_;
    Clock::time_point certificateSeen_ = Clock::now();
    std::jthread loading_;
    std::jthread serving_; // last: it ends before what it serves
};

} // namespace

int Serve(const CommandLine& line) {
    const Signals signals;
    Serving serving(line);
    auto minute = Clock::now() + kMinute;
    bool draining = false;
    while (!draining || !serving.IsEmpty()) {
        const auto signal =
            signals.WaitUntil(draining ? std::min(minute, Clock::now() + kWhileDraining) : minute);
        if (Clock::now() >= minute) {
            serving.EachMinute();
            minute += kMinute;
        }
        if (signal == SIGHUP) {
            serving.ReadAgain();
        } else if (signal == SIGUSR1 && !std::exchange(draining, true)) {
            serving.Drain();
        } else if (signal == SIGTERM || signal == SIGINT) {
            break;
        }
    }
    serving.End();
    return EXIT_SUCCESS;
}

} // namespace service

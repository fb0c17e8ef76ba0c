#include "serve.h"

#include "accounts.h"
#include "certificate.h"
#include "chain_pool.h"
#include "data_folder.h"
#include "decoder_pool.h"
#include "http_api.h"
#include "ledger.h"
#include "log.h"
#include "sessions.h"

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

namespace service {
namespace {

// Storing is tried again each second, so there is no need to wait for long.
constexpr auto kStorePatience = std::chrono::milliseconds(500);
constexpr auto kLastSentences = std::chrono::seconds(2);
constexpr std::int64_t kDefaultDecoders = 4;
constexpr std::int64_t kMostDecoders = 64;

std::optional<TlsFiles> ChooseTls(const CommandLine& line) {
    const auto certificate = line.Value("--certificate");
    const auto key = line.Value("--key");
    if (certificate.has_value() != key.has_value()) {
        throw UsageError("--certificate and --key go together");
    }
    if (line.Has("--plain") && certificate) {
        throw UsageError("--plain and --certificate exclude each other");
    }
    if (line.Has("--plain")) {
        return std::nullopt;
    }
    if (certificate) {
        return TlsFiles{*certificate, *key};
    }

    const CertificateFiles files = CertificateFilesIn(DataFolder());
    if (!std::filesystem::exists(files.server) || !std::filesystem::exists(files.key)) {
        throw std::runtime_error("there is no certificate in " + DataFolder().string() +
                                 "; `kelvarin-service certificate` makes one");
    }
    return TlsFiles{files.server, files.key};
}

std::string Listening(const std::string& address, int port, bool tls) {
    const bool bracketed = address.find(':') != address.npos;
    return std::string("kelvarin-service listening on ") + (tls ? "https://" : "http://") +
           (bracketed ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

} // namespace

int Serve(const CommandLine& line) {
    const std::string address = line.Value("--address").value_or("127.0.0.1");
    const auto port = ParseNumber("--port", line.Value("--port").value_or("443"), 0, 65'535);
    const auto decoders = static_cast<std::size_t>(ParseNumber(
        "--decoders", line.Value("--decoders").value_or(std::to_string(kDefaultDecoders)), 1,
        kMostDecoders));
    const std::optional<TlsFiles> tls = ChooseTls(line);

    // Blocked before any thread is made, so that all threads inherit it and only sigwait sees them.
    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGTERM);
    sigaddset(&endSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &endSignals, nullptr);
    std::signal(SIGPIPE, SIG_IGN); // a client that hung up is no reason to die

    Accounts accounts(AccountsFile(line), kStorePatience);
    DecoderPool pool(decoders);
    pool.Acquire(); // the first session need not wait, and a broken model shows now
    Ledger ledger(accounts);
    ChainPool chains;
    Sessions sessions(ledger, pool, chains);
    HttpApi api(ledger, sessions, tls, decoders);
    const int boundPort = api.Bind(address, static_cast<int>(port));

    std::jthread serving([&] { api.Serve(); });
    std::cout << Listening(address, boundPort, tls.has_value()) << std::endl;

    int signal = 0;
    sigwait(&endSignals, &signal);
    api.StopAccepting();
    sessions.EndAll(kLastSentences);
    api.Stop();
    serving.join();
    return EXIT_SUCCESS;
}

} // namespace service

// The command line of kelvarin-service: serving, keys, and the certificate for this computer.
#include "accounts.h"
#include "certificate.h"
#include "command_line.h"
#include "decoder_pool.h"
#include "http_api.h"
#include "log.h"
#include "random_token.h"
#include "sessions.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <limits>
#include <thread>

namespace service {
namespace {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

constexpr auto kIdleSessionLimit = std::chrono::seconds(60);
constexpr std::int64_t kDefaultDecoders = 4;
constexpr std::int64_t kMostDecoders = 64;

constexpr std::string_view kHelp =
    R"(kelvarin-service: speech translation on this computer, from English into Spanish,
Portuguese, French or Italian.

kelvarin-service serve [--address ADDRESS] [--port PORT] [--database FILE]
                       [--certificate FILE --key FILE | --plain] [--decoders COUNT]
    Serves until it gets SIGTERM or SIGINT. Says on standard output where it listens as soon as
    it does. ADDRESS is 127.0.0.1 and PORT 443 by default; port 0 takes a free one. --plain
    serves HTTP without TLS. COUNT sessions can run at the same time (4 by default), at about
    100 MB of memory each.

kelvarin-service keys add [KEY] [--unlimited | --seconds COUNT] [--database FILE]
    Makes an access key, or takes the one given, and prints it. It is unlimited, or good for COUNT
    seconds of audio.
kelvarin-service keys list [--database FILE]
kelvarin-service keys disable KEY [--database FILE]
kelvarin-service keys enable KEY [--database FILE]
kelvarin-service keys grant KEY (--unlimited | --seconds COUNT) [--database FILE]
    Adds COUNT seconds to a key's quota, or takes its limit away.

kelvarin-service certificate [DIRECTORY]
    Makes a local authority (ca.pem) and a certificate for localhost and 127.0.0.1 (server.pem,
    server.key), unless the directory holds good ones.

Files are in $XDG_DATA_HOME/kelvarin-service (~/.local/share/kelvarin-service) by default.
The exit code is 0, 1 after a failure, or 2 for a command line that cannot be understood.
)";

std::filesystem::path DataDirectory() {
    const char* const dataHome = std::getenv("XDG_DATA_HOME");
    if (dataHome != nullptr && dataHome[0] == '/') {
        return std::filesystem::path(dataHome) / "kelvarin-service";
    }
    const char* const home = std::getenv("HOME");
    if (home == nullptr || home[0] != '/') {
        throw std::runtime_error("neither XDG_DATA_HOME nor HOME names a folder");
    }
    return std::filesystem::path(home) / ".local/share/kelvarin-service";
}

void MakePrivateDirectory(const std::filesystem::path& directory) {
    if (std::filesystem::create_directories(directory)) {
        std::filesystem::permissions(directory, std::filesystem::perms::owner_all);
    }
}

Accounts OpenAccounts(const CommandLine& line) {
    if (const auto file = line.Value("--database")) {
        return Accounts(*file);
    }
    MakePrivateDirectory(DataDirectory());
    return Accounts(DataDirectory() / "accounts.db");
}

// ---- serve ----

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

    const CertificateFiles files = CertificateFilesIn(DataDirectory());
    if (!std::filesystem::exists(files.server) || !std::filesystem::exists(files.key)) {
        throw std::runtime_error("there is no certificate in " + DataDirectory().string() +
                                 "; `kelvarin-service certificate` makes one");
    }
    return TlsFiles{files.server, files.key};
}

std::string Listening(const std::string& address, int port, bool tls) {
    const bool bracketed = address.find(':') != address.npos;
    return std::string("kelvarin-service listening on ") + (tls ? "https://" : "http://") +
           (bracketed ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

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

    Accounts accounts = OpenAccounts(line);
    DecoderPool pool(decoders);
    pool.Acquire(); // the first session need not wait, and a broken model shows now
    Sessions sessions(accounts, pool, kIdleSessionLimit);
    HttpApi api(accounts, sessions, tls, decoders);
    const int boundPort = api.Bind(address, static_cast<int>(port));

    std::jthread serving([&] { api.Serve(); });
    std::cout << Listening(address, boundPort, tls.has_value()) << std::endl;

    int signal = 0;
    sigwait(&endSignals, &signal);
    api.Stop();
    serving.join();
    return EXIT_SUCCESS;
}

// ---- keys ----

constexpr std::int64_t kMostSeconds = std::numeric_limits<std::int32_t>::max();

// Milliseconds of --seconds; nothing for --unlimited or neither.
std::optional<std::int64_t> QuotaMs(const CommandLine& line) {
    const auto seconds = line.Value("--seconds");
    if (seconds && line.Has("--unlimited")) {
        throw UsageError("--seconds and --unlimited exclude each other");
    }
    if (!seconds) {
        return std::nullopt;
    }
    return ParseNumber("--seconds", *seconds, 0, kMostSeconds) * 1000;
}

int RequireKey(bool found) {
    if (!found) {
        throw std::runtime_error("there is no such key");
    }
    return EXIT_SUCCESS;
}

int AddKey(const CommandLine& line) {
    const auto quota = QuotaMs(line);
    Account account;
    account.key = line.words.size() == 3 ? line.words[2] : RandomToken();
    account.unlimited = !quota;
    account.initialMs = quota.value_or(0);
    if (!IsUsableKey(account.key)) {
        throw UsageError("a key has 1 to 255 letters, digits and -._~");
    }
    if (!OpenAccounts(line).Add(account)) {
        throw std::runtime_error("that key is there already");
    }
    std::cout << account.key << '\n';
    return EXIT_SUCCESS;
}

int ListKeys(const CommandLine& line) {
    for (const Account& account : OpenAccounts(line).List()) {
        std::cout << account.key << (account.disabled ? "  disabled" : "  enabled");
        if (account.unlimited) {
            std::cout << "  unlimited, ";
        } else {
            std::cout << "  " << account.RemainingMs() / 1000 << " s left of "
                      << account.initialMs / 1000 << " s, ";
        }
        std::cout << account.usedMs / 1000 << " s used\n";
    }
    return EXIT_SUCCESS;
}

int DisableKey(const CommandLine& line) {
    return RequireKey(OpenAccounts(line).SetDisabled(line.words[2], true));
}

int EnableKey(const CommandLine& line) {
    return RequireKey(OpenAccounts(line).SetDisabled(line.words[2], false));
}

int GrantKey(const CommandLine& line) {
    const auto quota = QuotaMs(line);
    if (!quota && !line.Has("--unlimited")) {
        throw UsageError("how much? --seconds or --unlimited");
    }
    Accounts accounts = OpenAccounts(line);
    return RequireKey(quota ? accounts.Grant(line.words[2], *quota)
                            : accounts.GrantUnlimited(line.words[2]));
}

// ---- certificate ----

int MakeCertificate(const CommandLine& line) {
    const std::filesystem::path directory =
        line.words.size() == 2 ? std::filesystem::path(line.words[1]) : DataDirectory();
    MakePrivateDirectory(directory);
    const CertificateState state = EnsureCertificate(directory);
    std::cout << (state == CertificateState::Made ? "made " : "kept ")
              << CertificateFilesIn(directory).authority.string() << '\n';
    return EXIT_SUCCESS;
}

// ---- choice of the command ----

constexpr std::array kServeOptions = {Option{"--address", true},     Option{"--port", true},
                                      Option{"--database", true},    Option{"--decoders", true},
                                      Option{"--certificate", true}, Option{"--key", true},
                                      Option{"--plain", false}};
constexpr std::array kQuotaOptions = {Option{"--database", true}, Option{"--seconds", true},
                                      Option{"--unlimited", false}};
constexpr std::array kKeyOptions = {Option{"--database", true}};

struct Command {
    std::string_view first;
    std::string_view second; // empty: one word names the command
    std::size_t fewestWords; // the command's own included
    std::size_t mostWords;
    std::span<const Option> options;
    int (*run)(const CommandLine&);
};

constexpr std::array kCommands = {
    Command{"serve", "", 1, 1, kServeOptions, Serve},
    Command{"keys", "add", 2, 3, kQuotaOptions, AddKey},
    Command{"keys", "list", 2, 2, kKeyOptions, ListKeys},
    Command{"keys", "disable", 3, 3, kKeyOptions, DisableKey},
    Command{"keys", "enable", 3, 3, kKeyOptions, EnableKey},
    Command{"keys", "grant", 3, 3, kQuotaOptions, GrantKey},
    Command{"certificate", "", 1, 2, {}, MakeCertificate},
};

int Run(std::span<const std::string_view> arguments) {
    if (std::ranges::find(arguments, "--help") != arguments.end()) {
        std::cout << kHelp;
        return EXIT_SUCCESS;
    }
    for (const Command& command : kCommands) {
        const bool named =
            !arguments.empty() && arguments[0] == command.first &&
            (command.second.empty() || (arguments.size() > 1 && arguments[1] == command.second));
        if (!named) {
            continue;
        }
        const CommandLine line = ParseCommandLine(arguments, command.options);
        if (line.words.size() < command.fewestWords || line.words.size() > command.mostWords) {
            throw UsageError("too few or too many words for this command");
        }
        return command.run(line);
    }
    throw UsageError("there is no such command");
}

} // namespace
} // namespace service

int main(int argc, char** argv) {
    try {
        const std::vector<std::string_view> arguments(argv + 1, argv + argc);
        return service::Run(arguments);
    } catch (const service::UsageError& error) {
        std::cerr << "kelvarin-service: " << error.what() << " (--help tells more)\n";
        return service::kExitUsage;
    } catch (const std::exception& error) {
        std::cerr << "kelvarin-service: " << error.what() << '\n';
        return service::kExitFailed;
    }
}

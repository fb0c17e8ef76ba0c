// The command line of kelvarin-service: serving, keys, and the certificate for this computer.
#include "certificate.h"
#include "command_line.h"
#include "data_folder.h"
#include "key_commands.h"
#include "serve.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <span>
#include <string_view>
#include <vector>

namespace service {
namespace {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

constexpr std::string_view kHelp =
    R"(kelvarin-service: speech translation on this computer, from English into Spanish,
Portuguese, French or Italian.

kelvarin-service serve [--address ADDRESS] [--port PORT] [--database FILE]
                       [--certificate FILE --key FILE | --plain] [--decoders COUNT]
                       [--settings FILE] [--metrics PORT]
                       [--accounts URL] [--instance NAME]
    Serves until it gets SIGTERM or SIGINT. Says on standard output where it listens as soon as
    it does. ADDRESS is 127.0.0.1 and PORT 443 by default; port 0 takes a free one. --plain
    serves HTTP without TLS. COUNT sessions can run at the same time (4 by default), at about
    95 MB of memory each, which is taken from the start on, and 100 MB for the translators that
    they share. --metrics gives figures for Prometheus on a port of 127.0.0.1.
    For several that serve together, URL is the accounts' database, postgresql://..., in the
    place of FILE, and NAME becomes part of the sessions' ids.
    The file of settings has lines of ADDRESS, PORT, CERTIFICATE, KEY, DECODERS, METRICS_PORT,
    ACCOUNTS and INSTANCE, each with = and a value; SIGHUP reads it and the certificate again.
    SIGUSR1 lets nobody start any more, and the service ends with its last session.

kelvarin-service keys add [KEY] [--name NAME] [--unlimited | --seconds COUNT] [--sessions NUMBER]
    Makes an access key, or takes the one given (16 letters or more), and prints it: only now, as
    it is kept as a hash. It is unlimited, or good for COUNT seconds of audio, and has NUMBER
    sessions at the same time (2 by default).
kelvarin-service keys list
    Shows every key's first five letters, what is left of it, and its name.
kelvarin-service keys disable KEY
kelvarin-service keys enable KEY
kelvarin-service keys remove KEY
kelvarin-service keys grant KEY (--unlimited | --seconds COUNT)
    Adds COUNT seconds to a key's quota, or takes its limit away.
kelvarin-service keys limit KEY [--seconds COUNT] [--sessions NUMBER]
    Leaves it COUNT seconds from now on, or gives it that number of sessions.
    KEY is a whole key, its name, its first five letters, or - for a line of standard input. All of
    these take --database FILE, --accounts URL or --settings FILE, as serve does.

kelvarin-service certificate [DIRECTORY]
    Makes a local authority (ca.pem) and a certificate for localhost and 127.0.0.1 (server.pem,
    server.key), unless the directory holds good ones.

Files are in $XDG_DATA_HOME/kelvarin-service (~/.local/share/kelvarin-service) by default.
The exit code is 0, 1 after a failure, or 2 for a command line that cannot be understood.
)";

int MakeCertificate(const CommandLine& line) {
    const std::filesystem::path directory =
        line.words.size() == 2 ? std::filesystem::path(line.words[1]) : DataFolder();
    MakePrivateFolder(directory);
    const CertificateState state = EnsureCertificate(directory);
    std::cout << (state == CertificateState::Made ? "made " : "kept ")
              << CertificateFilesIn(directory).authority.string() << '\n';
    return EXIT_SUCCESS;
}

constexpr std::array kServeOptions = {
    Option{"--address", true},  Option{"--port", true},        Option{"--database", true},
    Option{"--decoders", true}, Option{"--certificate", true}, Option{"--key", true},
    Option{"--plain", false},   Option{"--settings", true},    Option{"--metrics", true},
    Option{"--accounts", true}, Option{"--instance", true}};
constexpr std::array kAddOptions = {Option{"--database", true}, Option{"--accounts", true},
                                    Option{"--settings", true}, Option{"--name", true},
                                    Option{"--seconds", true},  Option{"--unlimited", false},
                                    Option{"--sessions", true}};
constexpr std::array kGrantOptions = {Option{"--database", true}, Option{"--accounts", true},
                                      Option{"--settings", true}, Option{"--seconds", true},
                                      Option{"--unlimited", false}};
constexpr std::array kLimitOptions = {Option{"--database", true}, Option{"--accounts", true},
                                      Option{"--settings", true}, Option{"--seconds", true},
                                      Option{"--sessions", true}};
constexpr std::array kKeyOptions = {Option{"--database", true}, Option{"--accounts", true},
                                    Option{"--settings", true}};

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
    Command{"keys", "add", 2, 3, kAddOptions, AddKey},
    Command{"keys", "list", 2, 2, kKeyOptions, ListKeys},
    Command{"keys", "disable", 3, 3, kKeyOptions, DisableKey},
    Command{"keys", "enable", 3, 3, kKeyOptions, EnableKey},
    Command{"keys", "remove", 3, 3, kKeyOptions, RemoveKey},
    Command{"keys", "grant", 3, 3, kGrantOptions, GrantKey},
    Command{"keys", "limit", 3, 3, kLimitOptions, LimitKey},
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

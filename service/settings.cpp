#include "settings.h"

#include "certificate.h"
#include "data_folder.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace service {
namespace {

constexpr std::int64_t kMostDecoders = 64;
constexpr std::int64_t kLastPort = 65'535;

struct Name {
    std::string_view inFile;
    const char* option;
};

constexpr std::array kNames = {
    Name{"ADDRESS", "--address"},         Name{"PORT", "--port"},
    Name{"CERTIFICATE", "--certificate"}, Name{"KEY", "--key"},
    Name{"DECODERS", "--decoders"},       Name{"METRICS_PORT", "--metrics"},
    Name{"ACCOUNTS", "--accounts"},       Name{"INSTANCE", "--instance"},
};

std::string_view Trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == text.npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string_view Unquoted(std::string_view value) {
    const bool quoted = value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
                        value.front() == value.back();
    return quoted ? value.substr(1, value.size() - 2) : value;
}

// By option.
std::map<std::string, std::string> ReadFile(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw std::system_error(errno, std::generic_category(), "cannot read " + path);
    }
    std::map<std::string, std::string> values;
    int number = 0;
    for (std::string text; std::getline(file, text);) {
        ++number;
        const std::string_view line = Trimmed(text);
        if (line.empty() || line.front() == '#') {
            continue;
        }
        const std::size_t equals = line.find('=');
        const auto* const name =
            std::ranges::find(kNames, Trimmed(line.substr(0, equals)), &Name::inFile);
        if (equals == line.npos || name == kNames.end()) {
            throw std::runtime_error("line " + std::to_string(number) + " of " + path +
                                     " is no setting of this program");
        }
        const std::string_view value = Unquoted(Trimmed(line.substr(equals + 1)));
        if (!value.empty()) {
            values[name->option] = value;
        }
    }
    return values;
}

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

// It becomes part of the sessions' ids.
std::string ChooseInstance(const CommandLine& line) {
    constexpr std::size_t kLongest = 32;
    std::string name = line.Value("--instance").value_or("");
    const bool plain = std::ranges::all_of(name, [](unsigned char letter) {
        return std::isalnum(letter) != 0 || letter == '-' || letter == '_';
    });
    if (!plain || name.size() > kLongest) {
        throw UsageError("--instance takes at most 32 letters, digits, - and _");
    }
    return name;
}

} // namespace

CommandLine WithSettingsFile(const CommandLine& line) {
    CommandLine all = line;
    if (const auto file = line.Value("--settings")) {
        all.options.merge(ReadFile(*file)); // what is there already stays
    }
    return all;
}

Settings ReadSettings(const CommandLine& line) {
    const CommandLine all = WithSettingsFile(line);
    const auto number = [&](const char* option, const char* usual, std::int64_t lowest,
                            std::int64_t highest) {
        return ParseNumber(option, all.Value(option).value_or(usual), lowest, highest);
    };
    Settings settings;
    settings.address = all.Value("--address").value_or("127.0.0.1");
    settings.port = static_cast<int>(number("--port", "443", 0, kLastPort));
    settings.decoders = static_cast<std::size_t>(number("--decoders", "4", 1, kMostDecoders));
    settings.tls = ChooseTls(all);
    settings.accounts = all.Value("--accounts").value_or("");
    settings.instance = ChooseInstance(all);
    if (all.Has("--metrics")) {
        settings.metricsPort = static_cast<int>(number("--metrics", "0", 0, kLastPort));
    }
    return settings;
}

} // namespace service

#include "key_commands.h"

#include "open_accounts.h"
#include "random_token.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace service {
namespace {

constexpr std::int64_t kMostSeconds = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kMostSessions = 64;
// Its hash is all that protects a key from who reads the accounts: it must not be guessed.
constexpr std::size_t kShortestKey = 16;
constexpr std::size_t kLongestName = 64;

// The word itself, or a line of the standard input, which neither `ps` nor a shell's history shows.
std::string WordOrInput(const std::string& word) {
    if (word != "-") {
        return word;
    }
    std::string line;
    std::getline(std::cin, line);
    return line;
}

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

std::optional<std::int64_t> SessionCount(const CommandLine& line) {
    const auto count = line.Value("--sessions");
    if (!count) {
        return std::nullopt;
    }
    return ParseNumber("--sessions", *count, 1, kMostSessions);
}

std::string NewName(const CommandLine& line) {
    std::string name = line.Value("--name").value_or("");
    const bool plain = std::ranges::none_of(
        name, [](unsigned char character) { return character < ' ' || character == 0x7F; });
    if (!plain || name.size() > kLongestName || (line.Has("--name") && name.empty())) {
        throw UsageError("a name has 1 to 64 letters, and no control characters");
    }
    return name;
}

KeyHash Require(Accounts& accounts, const CommandLine& line) {
    const auto key = accounts.Resolve(WordOrInput(line.words[2]));
    if (!key) {
        throw std::runtime_error("there is no such key");
    }
    return *key;
}

int Done(bool found) {
    if (!found) {
        throw std::runtime_error("there is no such key any more");
    }
    return EXIT_SUCCESS;
}

} // namespace

int AddKey(const CommandLine& line) {
    const auto quota = QuotaMs(line);
    const std::string key = line.words.size() == 3 ? WordOrInput(line.words[2]) : RandomToken();
    if (!IsUsableKey(key) || key.size() < kShortestKey) {
        throw UsageError("a key has 16 to 255 letters, digits and -._~");
    }
    Account account;
    account.keyStart = StartOf(key);
    account.name = NewName(line);
    account.unlimited = !quota;
    account.initialMs = quota.value_or(0);
    account.sessions = SessionCount(line).value_or(account.sessions);
    if (!OpenAccounts(line)->Add(HashOf(key), account)) {
        throw std::runtime_error("that key or that name is there already");
    }
    if (line.words.size() < 3 || line.words[2] != "-") {
        std::cout << key << '\n'; // who hands one in does not want it on the screen
    }
    return EXIT_SUCCESS;
}

int ListKeys(const CommandLine& line) {
    const auto accounts = OpenAccounts(line);
    for (const auto& [key, account] : accounts->List()) {
        std::cout << account.keyStart << "...  " << (account.disabled ? "disabled" : "enabled");
        if (account.unlimited) {
            std::cout << "  unlimited, ";
        } else {
            std::cout << "  " << account.RemainingMs() / 1000 << " s left of "
                      << account.initialMs / 1000 << " s, ";
        }
        std::cout << account.usedMs / 1000 << " s used, " << account.sessions
                  << (account.sessions == 1 ? " session" : " sessions");
        std::cout << (account.name.empty() ? "" : "  ") << account.name << '\n';
    }
    return EXIT_SUCCESS;
}

int DisableKey(const CommandLine& line) {
    const auto accounts = OpenAccounts(line);
    return Done(accounts->SetDisabled(Require(*accounts, line), true));
}

int EnableKey(const CommandLine& line) {
    const auto accounts = OpenAccounts(line);
    return Done(accounts->SetDisabled(Require(*accounts, line), false));
}

int RemoveKey(const CommandLine& line) {
    const auto accounts = OpenAccounts(line);
    return Done(accounts->Remove(Require(*accounts, line)));
}

int GrantKey(const CommandLine& line) {
    const auto quota = QuotaMs(line);
    if (!quota && !line.Has("--unlimited")) {
        throw UsageError("how much? --seconds or --unlimited");
    }
    const auto accounts = OpenAccounts(line);
    const KeyHash key = Require(*accounts, line);
    if (!quota) {
        return Done(accounts->GrantUnlimited(key));
    }
    if (!accounts->Grant(key, *quota)) {
        throw std::runtime_error("that key is unlimited: there is nothing to add to (`keys limit` "
                                 "makes it end)");
    }
    return EXIT_SUCCESS;
}

int LimitKey(const CommandLine& line) {
    const auto quota = QuotaMs(line);
    const auto sessions = SessionCount(line);
    if (!quota && !sessions) {
        throw UsageError("to how much? --seconds or --sessions");
    }
    const auto accounts = OpenAccounts(line);
    const KeyHash key = Require(*accounts, line);
    const bool limited = !quota || accounts->Limit(key, *quota);
    return Done(limited && (!sessions || accounts->SetSessions(key, *sessions)));
}

} // namespace service

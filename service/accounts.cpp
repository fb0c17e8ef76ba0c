#include "accounts.h"

#include "random_token.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <span>

namespace service {
namespace {

constexpr std::size_t kShownLetters = 5; // of a key

} // namespace

Refusal RefusalOf(const std::optional<Account>& account) {
    if (!account) {
        return Refusal::KeyNotFound;
    }
    if (account->disabled) {
        return Refusal::KeyDisabled;
    }
    if (!account->unlimited && account->RemainingMs() == 0) {
        return Refusal::QuotaExceeded;
    }
    return Refusal::None;
}

KeyHash HashOf(std::string_view key) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned int size = 0;
    if (EVP_Digest(key.data(), key.size(), bytes.data(), &size, EVP_sha256(), nullptr) != 1) {
        throw std::runtime_error("a key cannot be hashed");
    }
    return {HexDigits(std::span(bytes).first(size))};
}

std::string StartOf(std::string_view key) {
    return std::string(key.substr(0, kShownLetters));
}

bool IsUsableKey(std::string_view key) {
    constexpr std::size_t kLongestKey = 255;
    constexpr std::string_view kMarks = "-._~";
    return !key.empty() && key.size() <= kLongestKey &&
           std::ranges::all_of(key, [&](unsigned char character) {
               return std::isalnum(character) != 0 ||
                      kMarks.find(static_cast<char>(character)) != kMarks.npos;
           });
}

} // namespace service

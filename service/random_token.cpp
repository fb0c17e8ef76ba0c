#include "random_token.h"

#include <openssl/rand.h>

#include <array>
#include <stdexcept>
#include <string_view>

namespace service {

std::string RandomToken() {
    std::array<unsigned char, 16> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
        throw std::runtime_error("the system gives no random numbers");
    }

    return HexDigits(bytes);
}

std::string HexDigits(std::span<const unsigned char> bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : bytes) {
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 15U];
    }
    return text;
}

} // namespace service

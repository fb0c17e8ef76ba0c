#include "random_token.h"

#include <openssl/rand.h>

#include <array>
#include <stdexcept>

namespace service {

std::string RandomToken() {
    std::array<unsigned char, 16> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
        throw std::runtime_error("the system gives no random numbers");
    }

    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string token;
    for (const unsigned char byte : bytes) {
        token += kDigits[byte >> 4U];
        token += kDigits[byte & 15U];
    }
    return token;
}

} // namespace service

#include "base64.h"

#include <array>
#include <cstring>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

using CharacterPair = std::array<char, 2>;

// Both characters of each 12-bit value: half the look-ups of the alphabet itself, in 8 KB that stay
// in the first cache level.
constexpr std::array<CharacterPair, 4096> kPairs = [] {
    std::array<CharacterPair, 4096> pairs{};
    for (std::size_t value = 0; value < pairs.size(); ++value) {
        pairs[value] = {kAlphabet[value >> 6], kAlphabet[value & 63]};
    }
    return pairs;
}();

void EncodeGroup(char* out, std::uint32_t group) {
    std::memcpy(out, kPairs[group >> 12].data(), 2);
    std::memcpy(out + 2, kPairs[group & 0xFFF].data(), 2);
}

} // namespace

std::string Base64Encode(const std::uint8_t* data, std::size_t count) {
    std::string text((count + 2) / 3 * 4, '\0');
    char* out = text.data();
    std::size_t i = 0;
    for (; i + 3 <= count; i += 3, out += 4) {
        EncodeGroup(out,
                    static_cast<std::uint32_t>(data[i] << 16 | data[i + 1] << 8 | data[i + 2]));
    }
    const std::size_t left = count - i;
    if (left == 0) {
        return text;
    }
    const std::uint32_t second = left == 2 ? data[i + 1] : 0u;
    EncodeGroup(out, static_cast<std::uint32_t>(data[i]) << 16 | second << 8);
    out[3] = '=';
    if (left == 1) {
        out[2] = '=';
    }
    return text;
}

#include "base64.h"

#include <array>

namespace service {
namespace {

constexpr std::uint8_t kForeign = 0xFF;

constexpr std::array<std::uint8_t, 256> MakeValues() {
    constexpr std::string_view kAlphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::array<std::uint8_t, 256> values{};
    values.fill(kForeign);
    for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
        values[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
    }
    return values;
}

constexpr std::array<std::uint8_t, 256> kValues = MakeValues();

std::size_t PaddingOf(std::string_view text) {
    if (text.ends_with("==")) {
        return 2;
    }
    return text.ends_with('=') ? 1 : 0;
}

} // namespace

std::optional<std::vector<std::uint8_t>> DecodeBase64(std::string_view text) {
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    text.remove_suffix(PaddingOf(text));

    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 4 * 3 + 2);
    std::uint32_t bits = 0;
    unsigned int held = 0; // bits in `bits` that are not yet out
    for (const char character : text) {
        const std::uint8_t value = kValues[static_cast<unsigned char>(character)];
        if (value == kForeign) {
            return std::nullopt;
        }
        bits = (bits << 6U) | value;
        held += 6;
        if (held < 8) {
            continue;
        }
        held -= 8;
        bytes.push_back(static_cast<std::uint8_t>(bits >> held));
        bits &= (1U << held) - 1U;
    }
    if (bits != 0) {
        return std::nullopt;
    }
    return bytes;
}

} // namespace service

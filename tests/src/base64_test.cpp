#include "base64.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

std::string Encode(const std::string& bytes) {
    return Base64Encode(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

TEST(Base64, PadsEachLength) {
    const std::pair<const char*, const char*> vectors[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        {"\xFB\xFF\xBF", "+/+/"},
    };
    for (const auto& [bytes, text] : vectors) {
        EXPECT_EQ(Encode(bytes), text);
    }
}

// Six bits at a time, straight from the definition.
std::string ByDefinition(const std::vector<std::uint8_t>& data) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t bit = 0; bit < data.size() * 8; bit += 6) {
        unsigned value = 0;
        for (std::size_t i = bit; i < bit + 6; ++i) {
            const unsigned byte = i / 8 < data.size() ? data[i / 8] : 0u;
            value = value << 1 | (byte >> (7 - i % 8) & 1u);
        }
        text += alphabet[value];
    }
    text.resize((text.size() + 3) / 4 * 4, '=');
    return text;
}

TEST(Base64, AgreesWithTheDefinitionOnRandomBytes) {
    std::mt19937 random(20);
    for (std::size_t size = 0; size < 400; ++size) {
        std::vector<std::uint8_t> data(size);
        for (auto& byte : data) {
            byte = static_cast<std::uint8_t>(random());
        }
        ASSERT_EQ(Base64Encode(data.data(), data.size()), ByDefinition(data)) << size;
    }
}

} // namespace

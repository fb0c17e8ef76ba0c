// Base64 of RFC 4648, section 4, read strictly: the audio of an exchange arrives in it.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace service {

// Nothing for any text that an encoder would not have made: wrong length, foreign characters,
// line breaks, padding in the middle, bits left over behind the last byte.
std::optional<std::vector<std::uint8_t>> DecodeBase64(std::string_view text);

} // namespace service

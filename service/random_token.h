// Unguessable names, session ids and new access keys, and how bytes are written in them.
#pragma once

#include <span>
#include <string>

namespace service {

// 32 lower-case hexadecimal digits (128 random bits), safe in a URL as they stand.
std::string RandomToken();

// Two lower-case digits for each byte.
std::string HexDigits(std::span<const unsigned char> bytes);

} // namespace service

// Base64 of the audio that goes to the service.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// RFC 4648, section 4: the standard alphabet with padding, no line breaks.
std::string Base64Encode(const std::uint8_t* data, std::size_t count);

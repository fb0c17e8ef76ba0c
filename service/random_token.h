// Unguessable names: session ids and new access keys.
#pragma once

#include <string>

namespace service {

// 32 lower-case hexadecimal digits (128 random bits), safe in a URL as they stand.
std::string RandomToken();

} // namespace service

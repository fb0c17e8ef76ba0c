// The base URL of the translation service: fixed when the program is built, not a setting.
#pragma once

#include "wide_text.h"

#include <cstdint>

// Scheme, host and port count; a path would not be used.
WideString ServiceUrl();

// How the state of a key is asked for at the URL's host, whatever the URL says of it.
struct KeyStatusAccess {
    std::uint16_t port;
    bool https;
};
KeyStatusAccess AccessToKeyStatus();

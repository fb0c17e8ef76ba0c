// Why the service turns a request down, in the protocol's own words. Known to the rooms that
// decide (accounts, sessions) and to the one that answers (http_api).
#pragma once

namespace service {

enum class Refusal {
    None,
    KeyNotFound,
    KeyDisabled,
    QuotaExceeded,
    SessionNotFound,
    NoDecoderFree,
};

} // namespace service

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
    SessionBusy, // it is in another exchange
    NoDecoderFree,
    Overloaded,  // exchanges take longer than their audio
    CannotStore, // what would be used
    Ending,      // the service is being stopped
};

constexpr int kRefusals = static_cast<int>(Refusal::Ending) + 1; // `None` included

} // namespace service

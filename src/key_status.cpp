#include "key_status.h"

#include "json_scanner.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr std::size_t kLongestShownKey = 10;
constexpr std::size_t kShownEnd = 5;
constexpr float kBandShare = 0.28F; // of the bar

KeyStatus StatusOf(const std::string& body) {
    const bool valid = ExtractJsonBool(body, "valid");
    const std::string reason = ExtractJsonString(body, "reason");
    if (valid) {
        return KeyStatusValid;
    }
    return reason == "quota_exceeded" ? KeyStatusQuotaExhausted : KeyStatusInvalid;
}

// The whole quota alone chooses the unit, so that it stays while the rest shrinks.
WideString ValidText(const KeyCheckResult& state) {
    if (state.unlimited) {
        return TEXT("Valid  ·  Unlimited");
    }
    WCHAR text[96];
    if (const double hours = state.initialSeconds / 3600.0; hours >= 1.0) {
        FormatWide(text, std::size(text), TEXT("Valid  ·  %.1f h left / %.0f h total"),
                   state.remainingSeconds / 3600.0, hours);
    } else {
        FormatWide(text, std::size(text), TEXT("Valid  ·  %.0f min left / %.0f min total"),
                   state.remainingSeconds / 60.0, state.initialSeconds / 60.0);
    }
    return text;
}

} // namespace

KeyCheckResult ReadKeyAnswer(DWORD httpStatus, const std::string& body) {
    KeyCheckResult result;
    if (httpStatus != 200 || body.empty()) {
        return result;
    }
    result.status = StatusOf(body);
    result.unlimited = ExtractJsonBool(body, "unlimited");
    result.remainingSeconds = ExtractJsonNumber(body, "remaining_seconds");
    result.usedSeconds = ExtractJsonNumber(body, "total_used_seconds");
    result.initialSeconds = ExtractJsonNumber(body, "initial_seconds");
    return result;
}

WideString KeyStatusText(const KeyCheckResult& state) {
    switch (state.status) {
    case KeyStatusNone:
        return {};
    case KeyStatusChecking:
        return TEXT("Checking…");
    case KeyStatusValid:
        return ValidText(state);
    case KeyStatusInvalid:
        return TEXT("Invalid key");
    case KeyStatusQuotaExhausted:
        return TEXT("Quota exhausted");
    case KeyStatusUnavailable:
        break;
    }
    return TEXT("Unable to fetch status");
}

float UsedShare(const KeyCheckResult& state) {
    if (state.unlimited || !(state.initialSeconds > 0)) {
        return 0;
    }
    // Clamped before it is narrowed: the quotient may be too large for a float.
    return static_cast<float>(std::clamp(state.usedSeconds / state.initialSeconds, 0.0, 1.0));
}

WideString ShortenedKey(const WideString& key) {
    if (key.size() <= kLongestShownKey) {
        return key;
    }
    return key.substr(0, kShownEnd) + TEXT("···") + key.substr(key.size() - kShownEnd);
}

CheckingBand CheckingBandAt(float phase, float x, float w) {
    const float width = kBandShare * w;
    const float left = x + (w + width) * phase - width;
    const float right = left + width;
    return {left, right, std::max(left, x), std::min(x + w, right)};
}

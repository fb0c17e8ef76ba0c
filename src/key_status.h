// What is known of the access key, read from the service's answer, and how it is shown. Plain
// values and texts; knows no window and no network.
#pragma once

#include "wide_text.h"

#include <windows.h>

#include <cstdint>
#include <string>

enum KeyStatus : std::uint32_t {
    KeyStatusNone = 0,           // no key
    KeyStatusChecking = 1,       // an answer is awaited
    KeyStatusValid = 2,          // the service accepts it
    KeyStatusInvalid = 3,        // the service refuses it, for any reason but the quota
    KeyStatusQuotaExhausted = 4, // the service refuses it, as its quota is used up
    KeyStatusUnavailable = 5,    // no usable answer
};

// The outcome of one check.
struct KeyCheckResult {
    KeyStatus status = KeyStatusUnavailable;
    double remainingSeconds = 0;
    double usedSeconds = 0;
    double initialSeconds = 0;
    bool unlimited = false;
};

// Of an answer with this HTTP status (0: there was none) and body.
KeyCheckResult ReadKeyAnswer(DWORD httpStatus, const std::string& body);

// The words for a state; empty for KeyStatusNone.
WideString KeyStatusText(const KeyCheckResult& state);

// The share of the quota that has been used, 0 to 1; 0 for a key without a quota.
float UsedShare(const KeyCheckResult& state);

// A key as others may see it: its first and last five characters when it has more than ten.
WideString ShortenedKey(const WideString& key);

// Where the band of a running check is seen, and from where to where its gradient goes. `phase` is
// 0 to 1; x and w are those of the bar. Nothing is seen when right is not above left.
struct CheckingBand {
    float gradientLeft;
    float gradientRight;
    float left;
    float right;
};
CheckingBand CheckingBandAt(float phase, float x, float w);

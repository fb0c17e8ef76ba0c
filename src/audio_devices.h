// What the program knows of an audio endpoint. Plain data; the list of endpoints is made by
// AudioCapture::EnumerateDevices.
#pragma once

#include "wide_text.h"

#include <cstdint>

struct AudioDeviceInfo {
    WideString id;                // opaque, for the start operations; empty when unreadable
    WideString name;              // for people; empty when unreadable
    std::uint32_t sampleRate = 0; // of the mix format, in Hz; 0 when unreadable
    std::uint32_t channels = 0;   // of the mix format; 0 when unreadable
    bool loopback = false;        // a render endpoint, listed for what it plays
};

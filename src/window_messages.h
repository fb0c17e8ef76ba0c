// Taking apart what window messages carry. Knows no message's meaning.
#pragma once

#include <windows.h>

#include <cstdint>

// Coordinates in a message are signed: a captured pointer may be left of the window, or above it.
inline int SignedLow(std::intptr_t value) {
    return static_cast<std::int16_t>(LOWORD(value));
}
inline int SignedHigh(std::intptr_t value) {
    return static_cast<std::int16_t>(HIWORD(value));
}
// A control's number, in the place where CreateWindowExW takes it.
inline HMENU ControlNumber(int id) {
    return reinterpret_cast<HMENU>(static_cast<std::intptr_t>(id));
}
inline POINT PointOf(LPARAM lParam) {
    return {SignedLow(lParam), SignedHigh(lParam)};
}

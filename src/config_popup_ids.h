// The numbers of the settings popup's controls and timers, and how much of the key is read.
#pragma once

#include <windows.h>

#include <cstddef>

inline constexpr int kRefreshMicId = 201;
inline constexpr int kRefreshLoopbackId = 202;
inline constexpr int kStartButtonId = 204;
inline constexpr int kLangAListId = 205;
inline constexpr int kLangBListId = 206;
inline constexpr int kMicListId = 207;
inline constexpr int kLoopbackListId = 208;
inline constexpr int kKeyEditId = 210;

inline constexpr UINT_PTR kDebounceTimerId = 301;  // a check, once the user has stopped typing
inline constexpr UINT_PTR kAnimationTimerId = 302; // of the state "checking"
inline constexpr UINT_PTR kRefreshTimerId = 303;   // another check, as long as the popup is open
inline constexpr UINT kDebounceMs = 800;
inline constexpr UINT kAnimationPeriodMs = 40;
inline constexpr UINT kRefreshPeriodMs = 30000;

// Characters with the terminator.
inline constexpr std::size_t kCheckedKeyRoom = 256;
inline constexpr std::size_t kStoredKeyRoom = 512;

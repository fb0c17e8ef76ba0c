// The values that outlive the program: where they are kept, their names, reading and writing them.
// Knows no value's meaning. With a null key every read gives the fallback and every write is
// skipped.
#pragma once

#include "wide_text.h"

#include <windows.h>

namespace stored {

inline constexpr const WCHAR* kKey = TEXT("Software\\Kelvarin\\Config"); // of the current user

inline constexpr const WCHAR* kAccessKey = TEXT("access_key"); // text
inline constexpr const WCHAR* kLanguageA = TEXT("lang_a");     // number: row of kLanguageSources
inline constexpr const WCHAR* kLanguageB = TEXT("lang_b");     // likewise
inline constexpr const WCHAR* kMicrophone = TEXT("mic_device_name");    // text
inline constexpr const WCHAR* kLoopback = TEXT("loopback_device_name"); // text
inline constexpr const WCHAR* kUseMic = TEXT("use_mic");                // number: 0 or 1
inline constexpr const WCHAR* kUseLoopback = TEXT("use_loopback");      // number: 0 or 1
inline constexpr const WCHAR* kWindowHeight = TEXT("window_height");    // number: pixels

} // namespace stored

// A 32-bit number; the stored type is not looked at.
DWORD ReadStoredNumber(HKEY key, const WCHAR* name, DWORD fallback);
void WriteStoredNumber(HKEY key, const WCHAR* name, DWORD value);

// A text of at most 2047 characters; a longer one counts as absent. Empty when there is none.
WideString ReadStoredText(HKEY key, const WCHAR* name);
void WriteStoredText(HKEY key, const WCHAR* name, const WideString& text);

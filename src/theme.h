// What the windows look like as one: fonts, icons, and the colours that several of them share.
#pragma once

#include <windows.h>
#include <objbase.h>
#include <gdiplus.h>

namespace theme {

// ---- Fonts --------------------------------------------------------------------------------------

inline constexpr const WCHAR* kTextFamily = TEXT("Microsoft YaHei UI");
inline constexpr const WCHAR* kStatusFamily = TEXT("Segoe UI"); // of the state of the access key
inline constexpr const WCHAR* kIconFamily = TEXT("Segoe MDL2 Assets");

// ---- Icons --------------------------------------------------------------------------------------

// Characters of the icon font, as texts.
inline constexpr const WCHAR* kSettingsIcon = TEXT("\uE713");
inline constexpr const WCHAR* kMicrophoneIcon = TEXT("\uE720");
inline constexpr const WCHAR* kSpeakerIcon = TEXT("\uE767");
inline constexpr const WCHAR* kStartIcon = TEXT("\uE768");
inline constexpr const WCHAR* kStopIcon = TEXT("\uE769");
inline constexpr const WCHAR* kClearIcon = TEXT("\uE107");
inline constexpr const WCHAR* kHideIcon = TEXT("\uE106");
inline constexpr const WCHAR* kTranslationIcon = TEXT("\uE775");
inline constexpr const WCHAR* kRefreshIcon = TEXT("\uE72C");

// The private use area, where the icon font has its characters.
inline constexpr bool IsIcon(WCHAR character) {
    return character >= 0xE000 && character <= 0xF8FF;
}

// ---- Colours ------------------------------------------------------------------------------------

// A gradient, on the header of the overlay and of the settings.
inline constexpr Gdiplus::ARGB kHeaderTop = 0x16FFFFFF;
inline constexpr Gdiplus::ARGB kHeaderBottom = 0x00FFFFFF;

// Of the settings and their lists.
inline constexpr Gdiplus::ARGB kSurface = 0xFF121220;
inline constexpr Gdiplus::ARGB kField = 0xFF1E1E32;
inline constexpr Gdiplus::ARGB kRaised = 0xFF282840; // for hover and press
inline constexpr Gdiplus::ARGB kBorder = 0x32FFFFFF;
inline constexpr Gdiplus::ARGB kAccentBorder = 0x78A5C3FF;
inline constexpr Gdiplus::ARGB kBrightText = 0xFFEFEFEF;
inline constexpr Gdiplus::ARGB kGreen = 0xFF3DDC84;

// What the system clears a window with that paints all of itself.
inline constexpr COLORREF kWindowClear = 0x010101;

// The same colour for GDI, which has no alpha.
inline constexpr COLORREF ForGdi(Gdiplus::ARGB colour) {
    return RGB(static_cast<BYTE>(colour >> 16), static_cast<BYTE>(colour >> 8),
               static_cast<BYTE>(colour));
}

} // namespace theme

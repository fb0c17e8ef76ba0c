// The colours that the settings popup and its lists share.
#pragma once

#include <windows.h>
#include <objbase.h>
#include <gdiplus.h>

inline constexpr Gdiplus::ARGB kSurfaceColour = 0xFF121220;
inline constexpr Gdiplus::ARGB kFieldColour = 0xFF1E1E32;
inline constexpr Gdiplus::ARGB kRaisedColour = 0xFF282840; // for hover and press
inline constexpr Gdiplus::ARGB kBorderColour = 0x32FFFFFF;
inline constexpr Gdiplus::ARGB kAccentBorderColour = 0x78A5C3FF;
inline constexpr Gdiplus::ARGB kTitleColour = 0xFFEFEFEF;
inline constexpr Gdiplus::ARGB kGreenColour = 0xFF3DDC84;

// The same colour for GDI, which has no alpha.
inline constexpr COLORREF GdiColour(Gdiplus::ARGB colour) {
    return RGB(static_cast<BYTE>(colour >> 16), static_cast<BYTE>(colour >> 8),
               static_cast<BYTE>(colour));
}

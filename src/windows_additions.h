// What the headers of some systems still lack of the interfaces that the program uses.
#pragma once

#include <windows.h>
#include <dwmapi.h>

#ifndef WDA_EXCLUDEFROMCAPTURE
#define WDA_EXCLUDEFROMCAPTURE 0x00000011
#endif

inline constexpr DWORD kWindowCornerPreference = 33; // DWMWA_WINDOW_CORNER_PREFERENCE
inline constexpr DWORD kRoundCorners = 2;            // DWMWCP_ROUND

// The desktop window manager. Declarations only.
#pragma once

#include <windef.h>

// Macros, so that a program that brings its own for older headers can ask for them.
#define DWMWA_WINDOW_CORNER_PREFERENCE 33
#define DWMWCP_DEFAULT 0
#define DWMWCP_DONOTROUND 1
#define DWMWCP_ROUND 2

// Only DWMWA_WINDOW_CORNER_PREFERENCE, 4 bytes. Rounded corners are seen from the next picture on.
HRESULT DwmSetWindowAttribute(HWND window, DWORD attribute, LPCVOID value, DWORD bytes);

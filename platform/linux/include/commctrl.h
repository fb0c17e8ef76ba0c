// Common controls. Declarations only.
#pragma once

#include <windef.h>

constexpr DWORD ICC_WIN95_CLASSES = 0x00FF;
constexpr DWORD ICC_STANDARD_CLASSES = 0x4000;

struct INITCOMMONCONTROLSEX {
    DWORD dwSize;
    DWORD dwICC;
};

// The controls that there are need no set-up.
BOOL InitCommonControlsEx(const INITCOMMONCONTROLSEX* classes);

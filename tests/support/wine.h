// Whether the tests run under Wine, for the few that it cannot pass.
#pragma once

#include <windows.h>

inline bool IsWine() {
    HMODULE native = GetModuleHandleW(TEXT("ntdll.dll"));
    return native != nullptr && GetProcAddress(native, "wine_get_version") != nullptr;
}

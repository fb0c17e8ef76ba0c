// The registry (room registry/). Declarations only. Any thread calls any operation.
#pragma once

#include <windef.h>

using LSTATUS = LONG;
using REGSAM = DWORD;
using PHKEY = HKEY*;

// NOLINTNEXTLINE(performance-no-int-to-ptr): no object has this address
inline const HKEY HKEY_CURRENT_USER = reinterpret_cast<HKEY>(ULONG_PTR{0x80000001});

constexpr REGSAM KEY_ALL_ACCESS = 0xF003F;
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_DWORD = 4;

// Opens a key of two or more parts below HKEY_CURRENT_USER and makes it if there is none. On
// failure `*key` is null. The disposition is not told: its pointer must be null.
LSTATUS RegCreateKeyExW(HKEY root, LPCWSTR path, DWORD reserved, LPWSTR keyClass, DWORD options,
                        REGSAM access, SECURITY_ATTRIBUTES* security, PHKEY key,
                        LPDWORD disposition);

// `*size` is the room at `data` in bytes, and becomes the value's size: with ERROR_SUCCESS, with a
// null `data`, and with ERROR_MORE_DATA. `type` may be null.
LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                         LPDWORD size);

// The value is safe from the end of the process when this returns, and from a loss of power a
// little later.
LSTATUS RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                       DWORD size);

LSTATUS RegCloseKey(HKEY key);

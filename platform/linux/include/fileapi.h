// Files and folders (room files/). Declarations only. Both `\` and `/` separate the parts of a
// path.
#pragma once

#include <windef.h>

constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD FILE_SHARE_READ = 1;
constexpr DWORD CREATE_NEW = 1;
constexpr DWORD CREATE_ALWAYS = 2;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;

// NOLINTNEXTLINE(performance-no-int-to-ptr): no object has this address
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(LONG_PTR{-1});

struct OVERLAPPED;

// Opens a file for writing, from its beginning. Only GENERIC_WRITE, CREATE_NEW and CREATE_ALWAYS;
// others may read and, unlike on Windows, write it too. INVALID_HANDLE_VALUE on failure, with the
// reason in GetLastError: ERROR_FILE_EXISTS where CREATE_NEW finds one.
HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD shareMode, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD attributes, HANDLE templateFile);

// Hands the bytes to the system before it returns. `*written` is right on failure too.
BOOL WriteFile(HANDLE file, LPCVOID data, DWORD bytes, LPDWORD written, OVERLAPPED* overlapped);

// One level: the folder around it has to be there.
BOOL CreateDirectoryW(LPCWSTR path, SECURITY_ATTRIBUTES* security);

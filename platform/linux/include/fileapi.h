// Files and folders (room files/). Declarations only. Both `\` and `/` separate the parts of a
// path.
#pragma once

#include <windef.h>

#include <cstdint>

constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD FILE_APPEND_DATA = 4;
constexpr DWORD FILE_SHARE_READ = 1;
constexpr DWORD CREATE_NEW = 1;
constexpr DWORD CREATE_ALWAYS = 2;
constexpr DWORD OPEN_ALWAYS = 4;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;

// NOLINTNEXTLINE(performance-no-int-to-ptr): no object has this address
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(LONG_PTR{-1});

struct OVERLAPPED;

union LARGE_INTEGER {
    std::int64_t QuadPart;
};

// Opens a file for writing at its end. Only GENERIC_WRITE or FILE_APPEND_DATA, which are one here,
// and CREATE_NEW, CREATE_ALWAYS and OPEN_ALWAYS. INVALID_HANDLE_VALUE on failure, with the reason
// in GetLastError: ERROR_FILE_EXISTS where CREATE_NEW finds one. After OPEN_ALWAYS it tells whether
// the file was there: ERROR_ALREADY_EXISTS or ERROR_SUCCESS.
//
// Unlike on Windows, others can write, rename and delete the file meanwhile. What they write in
// place stays; what is written here comes after it.
HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD shareMode, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD attributes, HANDLE templateFile);

// Hands the bytes to the system before it returns: all of them or, as far as the file lets itself
// be shortened again, none. `*written` is right on failure too. ERROR_FILE_INVALID, with nothing
// written, when the file is no longer the one under its name: the bytes would go where nobody
// looks.
BOOL WriteFile(HANDLE file, LPCVOID data, DWORD bytes, LPDWORD written, OVERLAPPED* overlapped);

// In bytes.
BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size);

// One level: the folder around it has to be there.
BOOL CreateDirectoryW(LPCWSTR path, SECURITY_ATTRIBUTES* security);

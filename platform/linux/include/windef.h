// The Windows base types: numbers, text, handles, points and rectangles. Declarations only.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- Numbers and text -------------------------------------------------------------------------

#define WINAPI
#define CALLBACK
#define TRUE 1
#define FALSE 0

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using INT = int;
using UINT = unsigned int;
using UINT32 = std::uint32_t;
using UINT64 = std::uint64_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using DWORD_PTR = std::uintptr_t;
using LONG_PTR = std::intptr_t;
using ULONG_PTR = std::uintptr_t;
using UINT_PTR = std::uintptr_t;
using WPARAM = UINT_PTR;
using LPARAM = LONG_PTR;
using LRESULT = LONG_PTR;
using HRESULT = LONG;
using COLORREF = DWORD; // 0x00BBGGRR
using ATOM = WORD;
using CHAR = char;
using WCHAR = char16_t; // 16 bits, as on Windows
using LPSTR = CHAR*;
using LPCSTR = const CHAR*;
using LPWSTR = WCHAR*;
using PWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPBYTE = BYTE*;
using LPDWORD = DWORD*;
using FARPROC = std::intptr_t (*)();

#define __TEXT(quote) u##quote
#define TEXT(quote) __TEXT(quote)

#define LOWORD(value) (static_cast<WORD>(static_cast<DWORD_PTR>(value) & 0xFFFF))
#define HIWORD(value) (static_cast<WORD>((static_cast<DWORD_PTR>(value) >> 16) & 0xFFFF))
#define MAKELONG(low, high)                                                                        \
    (static_cast<LONG>((static_cast<DWORD>(static_cast<WORD>(high)) << 16) |                       \
                       static_cast<WORD>(low)))
#define MAKEWPARAM(low, high) (static_cast<WPARAM>(static_cast<DWORD>(MAKELONG(low, high))))
#define MAKELPARAM(low, high) (static_cast<LPARAM>(MAKELONG(low, high)))
#define RGB(red, green, blue)                                                                      \
    (static_cast<COLORREF>(static_cast<BYTE>(red) | (static_cast<BYTE>(green) << 8) |              \
                           (static_cast<BYTE>(blue) << 16)))

constexpr int MAX_PATH = 260;

// ---- Handles ----------------------------------------------------------------------------------

// Distinct pointer types, so that one cannot be taken for another.
// NOLINTBEGIN(bugprone-macro-parentheses): a type cannot stand in parentheses
#define DECLARE_HANDLE(name)                                                                       \
    struct name##__;                                                                               \
    using name = name##__*
// NOLINTEND(bugprone-macro-parentheses)

using HANDLE = void*;
using HGDIOBJ = void*; // any of the drawing objects below
DECLARE_HANDLE(HBITMAP);
DECLARE_HANDLE(HBRUSH);
DECLARE_HANDLE(HDC);
DECLARE_HANDLE(HFONT);
DECLARE_HANDLE(HICON);
DECLARE_HANDLE(HINSTANCE);
DECLARE_HANDLE(HKEY);
DECLARE_HANDLE(HMENU);
DECLARE_HANDLE(HMONITOR);
DECLARE_HANDLE(HWND);
using HCURSOR = HICON;
using HMODULE = HINSTANCE;

struct SECURITY_ATTRIBUTES;

// ---- Geometry ---------------------------------------------------------------------------------

struct POINT {
    LONG x;
    LONG y;
};
using LPPOINT = POINT*;

struct SIZE {
    LONG cx;
    LONG cy;
};

// The right and the bottom edge lie outside.
struct RECT {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
};
using LPRECT = RECT*;

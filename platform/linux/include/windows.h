// The Windows base interfaces, as far as the program uses them: types, text, process and thread
// services. Declarations only; the rooms text/ and process/ implement them.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>

// ---- Types ------------------------------------------------------------------------------------

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
using HRESULT = LONG;
using CHAR = char;
using WCHAR = char16_t; // 16 bits, as on Windows
using LPSTR = CHAR*;
using LPCSTR = const CHAR*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPDWORD = DWORD*;
using HANDLE = void*;
using HMODULE = void*;
using FARPROC = std::intptr_t (*)();

struct SECURITY_ATTRIBUTES;

#define __TEXT(quote) u##quote
#define TEXT(quote) __TEXT(quote)

// ---- Results ----------------------------------------------------------------------------------

#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001);
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003);
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFF);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);
constexpr HRESULT E_NOTFOUND = static_cast<HRESULT>(0x80070490); // ERROR_NOT_FOUND
constexpr HRESULT CLASS_E_NOAGGREGATION = static_cast<HRESULT>(0x80040110);
constexpr HRESULT REGDB_E_CLASSNOTREG = static_cast<HRESULT>(0x80040154);

// ---- Text (room text/) ------------------------------------------------------------------------

constexpr UINT CP_UTF8 = 65001;

// UTF-8 to UTF-16. `length` -1 means up to and with the terminating zero. With `room` 0 nothing is
// written. Returns the units written or needed, 0 when there is too little room. Malformed bytes
// become U+FFFD, one for each maximal malformed subsequence. Only CP_UTF8 with flags 0.
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR wide, int room);

// UTF-16 to UTF-8, on the same terms. Lone surrogates become U+FFFD. The default character and
// the pointer behind it must be null, as Windows wants it for CP_UTF8.
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int length, LPSTR text, int room,
                        LPCSTR defaultChar, BOOL* usedDefaultChar);

// Formats into `buffer` of `room` units with the meaning of the Microsoft runtime: %s is a wide
// string, %lu is 32 bits wide in the text yet takes an `unsigned long` argument. Conversions: d, i,
// u, x, X, c, s, %, with flags 0 and -, a width, a precision of strings, and the sizes l, ll, h.
// Returns the length, or -1 when the text was cut; as there, a text that fills the room exactly or
// was cut is not terminated.
int _vsnwprintf(WCHAR* buffer, std::size_t room, const WCHAR* format, std::va_list arguments);

// Writes a wide string to a stream as UTF-8. Non-negative on success, EOF on failure.
int fputws(const WCHAR* text, std::FILE* stream);

// ---- Process, threads and time (room process/) ------------------------------------------------

constexpr DWORD INFINITE = 0xFFFFFFFF;
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

// An event that any thread may set and wait for. Null on failure. Named events are refused.
HANDLE CreateEventW(SECURITY_ATTRIBUTES* security, BOOL manualReset, BOOL initiallySet,
                    LPCWSTR name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);
// WAIT_OBJECT_0, WAIT_TIMEOUT or WAIT_FAILED; an auto-reset event is taken by one waiter.
DWORD WaitForSingleObject(HANDLE object, DWORD timeoutMs);
BOOL CloseHandle(HANDLE object);

// A thread that polls a capture client, and has just found it empty, sleeps until the client has
// sound, at most 50 ms, where it asked for less.
void Sleep(DWORD milliseconds);

struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

void GetLocalTime(SYSTEMTIME* time);

// The debugger's channel, which this system does not have: the text is dropped.
void OutputDebugStringW(LPCWSTR text);

constexpr DWORD MAX_COMPUTERNAME_LENGTH = 15;

// The host name without its domain. `*size` is the room in units, and on success the length. A
// longer name is cut to MAX_COMPUTERNAME_LENGTH; FALSE when `*size` is too small.
BOOL GetComputerNameW(LPWSTR name, LPDWORD size);

struct RTL_OSVERSIONINFOW {
    ULONG dwOSVersionInfoSize;
    ULONG dwMajorVersion;
    ULONG dwMinorVersion;
    ULONG dwBuildNumber;
    ULONG dwPlatformId;
    WCHAR szCSDVersion[128];
};

// Knows "ntdll.dll" only, and in it "RtlGetVersion", which tells the kernel's release.
HMODULE GetModuleHandleW(LPCWSTR name);
FARPROC GetProcAddress(HMODULE module, LPCSTR name);

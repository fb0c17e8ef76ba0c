// The Windows base interfaces, as far as the program uses them: types, text, process and thread
// services, and with them the headers that <windows.h> brings along. Declarations only; the rooms
// text/ and process/ implement them, where nothing else is said.
#pragma once

#include <windef.h>
#include <fileapi.h>
#include <wingdi.h>
#include <winreg.h>
#include <winuser.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>

// ---- Results ----------------------------------------------------------------------------------

#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)

constexpr LONG ERROR_SUCCESS = 0;
constexpr LONG ERROR_FILE_NOT_FOUND = 2;
constexpr LONG ERROR_PATH_NOT_FOUND = 3;
constexpr LONG ERROR_ACCESS_DENIED = 5;
constexpr LONG ERROR_INVALID_HANDLE = 6;
constexpr LONG ERROR_WRITE_FAULT = 29;
constexpr LONG ERROR_FILE_EXISTS = 80;
constexpr LONG ERROR_INVALID_PARAMETER = 87;
constexpr LONG ERROR_DISK_FULL = 112;
constexpr LONG ERROR_INSUFFICIENT_BUFFER = 122;
constexpr LONG ERROR_INVALID_NAME = 123;
constexpr LONG ERROR_ALREADY_EXISTS = 183;
constexpr LONG ERROR_ENVVAR_NOT_FOUND = 203;
constexpr LONG ERROR_MORE_DATA = 234;
constexpr LONG ERROR_NOT_OWNER = 288;
constexpr LONG ERROR_FILE_INVALID = 1006;

// Of the calling thread's last call of CreateMutexW, ReleaseMutex, CreateFileW, WriteFile,
// GetFileSizeEx, CreateDirectoryW, GetModuleFileNameW or GetEnvironmentVariableW that failed, and
// of every CreateMutexW and every CreateFileW with OPEN_ALWAYS. Other calls leave it as it was.
DWORD GetLastError();
void SetLastError(DWORD error);

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

// ---- The program's start (room process/) ------------------------------------------------------

// What the program defines; the layer's entry calls it with its own module, an empty command line
// and SW_SHOWDEFAULT.
int WINAPI wWinMain(HINSTANCE instance, HINSTANCE previous, LPWSTR commandLine, int showCommand);

constexpr DWORD ATTACH_PARENT_PROCESS = 0xFFFFFFFF;

// Attaches nothing: stdout and stderr are what the program was started with. TRUE when stderr leads
// to a terminal, a file or a pipe; FALSE when it leads nowhere or into the session's journal, as it
// does for a program that a desktop started.
BOOL AttachConsole(DWORD processId);

// Only "CONOUT$", the console that the stream leads to as it is: succeeds and leaves it alone.
using errno_t = int;
errno_t freopen_s(std::FILE** result, const char* name, const char* mode, std::FILE* stream);

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

// A mutex that processes of this user tell each other by: the first holds the name until it closes
// the handle or ends, however it ends; every other one gets a handle that owns nothing, and
// ERROR_ALREADY_EXISTS from GetLastError, which is 0 for the first. Only named and initially owned.
// Null on failure. It cannot be waited for.
HANDLE CreateMutexW(SECURITY_ATTRIBUTES* security, BOOL initiallyOwned, LPCWSTR name);
// Gives up the ownership; the name stays taken.
BOOL ReleaseMutex(HANDLE mutex);

// Events, mutexes and files.
BOOL CloseHandle(HANDLE object);

// A thread that polls a capture client, and has just found it empty, sleeps until the client has
// sound or 60 ms of silence, at most 70 ms, where it asked for less.
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

// Knows, by a null name, the program itself. The libraries of Windows are not there: whoever asks
// one of them for its version must not take this system's for one of Windows.
HMODULE GetModuleHandleW(LPCWSTR name);
// Always null.
FARPROC GetProcAddress(HMODULE module, LPCSTR name);

// The program's file (`module` null), with `\` between the parts of its path (room files/). Returns
// the length without the terminator; a path that does not fit is cut, terminated, and `room` is
// returned.
DWORD GetModuleFileNameW(HMODULE module, LPWSTR path, DWORD room);

// Returns the length without the terminator; where it does not fit, the room that it needs with the
// terminator; 0 with ERROR_ENVVAR_NOT_FOUND when it is not set.
DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR value, DWORD room);

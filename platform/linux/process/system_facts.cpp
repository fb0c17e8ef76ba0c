// What the program asks of the machine: its name, its system's version, the time, the debugger.
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

#include <sys/utsname.h>
#include <unistd.h>

void GetLocalTime(SYSTEMTIME* time) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    *time = {static_cast<WORD>(local.tm_year + 1900), static_cast<WORD>(local.tm_mon + 1),
             static_cast<WORD>(local.tm_wday),        static_cast<WORD>(local.tm_mday),
             static_cast<WORD>(local.tm_hour),        static_cast<WORD>(local.tm_min),
             static_cast<WORD>(local.tm_sec),         static_cast<WORD>(now.tv_nsec / 1'000'000)};
}

void OutputDebugStringW(LPCWSTR /*text*/) {}

BOOL GetComputerNameW(LPWSTR name, LPDWORD size) {
    char host[256] = {};
    if (gethostname(host, sizeof host - 1) != 0) {
        return FALSE;
    }
    if (char* dot = std::strchr(host, '.'); dot != nullptr) {
        *dot = '\0';
    }
    WCHAR wide[sizeof host] = {};
    MultiByteToWideChar(CP_UTF8, 0, host, -1, wide, static_cast<int>(std::size(wide)));
    std::u16string_view text(wide);
    text = text.substr(0, MAX_COMPUTERNAME_LENGTH);
    if (text.empty() || *size <= text.size()) {
        return FALSE;
    }
    text.copy(name, text.size());
    name[text.size()] = 0;
    *size = static_cast<DWORD>(text.size());
    return TRUE;
}

namespace {

// 0 on success, as the native interface has it.
LONG RtlGetVersion(RTL_OSVERSIONINFOW* version) {
    utsname system{};
    unsigned major = 0;
    unsigned minor = 0;
    unsigned build = 0;
    if (version->dwOSVersionInfoSize < sizeof *version || uname(&system) != 0 ||
        std::sscanf(system.release, "%u.%u.%u", &major, &minor, &build) < 2) {
        return -1;
    }
    version->dwMajorVersion = major;
    version->dwMinorVersion = minor;
    version->dwBuildNumber = build;
    return 0;
}

// What module handles point to; nobody looks into them.
HMODULE ModuleAt(char& place) {
    return reinterpret_cast<HMODULE>(&place);
}

char nativeModule = 0;
char ownModule = 0;

} // namespace

HMODULE GetModuleHandleW(LPCWSTR name) {
    if (name == nullptr) {
        return ModuleAt(ownModule);
    }
    return std::u16string_view(name) == u"ntdll.dll" ? ModuleAt(nativeModule) : nullptr;
}

FARPROC GetProcAddress(HMODULE module, LPCSTR name) {
    if (module != ModuleAt(nativeModule) || std::string_view(name) != "RtlGetVersion") {
        return nullptr;
    }
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&RtlGetVersion));
}

// What the program asks of the machine: its name, the time, the debugger.
#include <windows.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <string_view>

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

char ownModule = 0; // what its module handle points to; nobody looks into it

} // namespace

HMODULE GetModuleHandleW(LPCWSTR name) {
    return name == nullptr ? reinterpret_cast<HMODULE>(&ownModule) : nullptr;
}

FARPROC GetProcAddress(HMODULE /*module*/, LPCSTR /*name*/) {
    return nullptr;
}

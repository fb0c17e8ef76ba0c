#include "stored_values.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::size_t kTextRoom = 2048; // characters, the terminator included

} // namespace

DWORD ReadStoredNumber(HKEY key, const WCHAR* name, DWORD fallback) {
    DWORD value = 0;
    DWORD type = 0;
    DWORD size = sizeof value;
    if (key == nullptr ||
        RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size) != 0) {
        return fallback;
    }
    return value;
}

void WriteStoredNumber(HKEY key, const WCHAR* name, DWORD value) {
    if (key != nullptr) {
        RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                       sizeof value);
    }
}

WideString ReadStoredText(HKEY key, const WCHAR* name) {
    std::array<WCHAR, kTextRoom> text{};
    DWORD type = 0;
    DWORD size = sizeof text;
    if (key == nullptr || RegQueryValueExW(key, name, nullptr, &type,
                                           reinterpret_cast<BYTE*>(text.data()), &size) != 0) {
        return {};
    }
    return {text.begin(), std::find(text.begin(), text.end(), WCHAR{0})};
}

void WriteStoredText(HKEY key, const WCHAR* name, const WideString& text) {
    if (key != nullptr) {
        RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                       static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR)));
    }
}

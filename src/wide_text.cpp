#include "wide_text.h"

std::string WideToUtf8(const WideString& text) {
    if (text.empty()) {
        return {};
    }
    const int bytes =
        WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, nullptr, 0, nullptr, nullptr);
    if (bytes <= 1) {
        return {};
    }
    std::string utf8(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, utf8.data(), bytes, nullptr, nullptr);
    utf8.pop_back(); // the terminating zero, which the platform counts
    return utf8;
}

WideString Utf8ToWide(const std::string& text) {
    if (text.empty()) {
        return {};
    }
    const int units = MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, nullptr, 0);
    if (units <= 1) {
        return {};
    }
    WideString wide(static_cast<std::size_t>(units), WCHAR{0});
    MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, wide.data(), units);
    wide.pop_back();
    return wide;
}

void FormatWideV(WCHAR* buffer, std::size_t room, const WCHAR* format, std::va_list arguments) {
    // The runtime leaves a text unterminated that was cut or fills the room to its last unit.
    const int length = _vsnwprintf(buffer, room, format, arguments);
    if (length < 0 || static_cast<std::size_t>(length) >= room) {
        buffer[room - 1] = 0;
    }
}

void FormatWide(WCHAR* buffer, std::size_t room, const WCHAR* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    FormatWideV(buffer, room, format, arguments);
    va_end(arguments);
}

// Wide strings and their one bridge to UTF-8. Knows nothing of who uses the text.
#pragma once

#include <windows.h>

#include <cstdarg>
#include <cstddef>
#include <string>

// UTF-16 text in 16-bit units: all text inside the program.
using WideString = std::basic_string<WCHAR>;

// Both take the text up to its terminating zero, so that what follows an embedded zero is
// lost, and never fail: what is not well formed becomes U+FFFD.
std::string WideToUtf8(const WideString& text);
WideString Utf8ToWide(const std::string& text);

// Formats into `buffer` of `room` units with Windows' conversions (%s is a wide string). The result
// is always terminated; what does not fit is cut. `%lu` wants an `unsigned long`.
void FormatWide(WCHAR* buffer, std::size_t room, const WCHAR* format, ...);
void FormatWideV(WCHAR* buffer, std::size_t room, const WCHAR* format, std::va_list arguments);

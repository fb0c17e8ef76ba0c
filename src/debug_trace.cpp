#include "debug_trace.h"

#include "wide_text.h"

#include <cstdio>
#include <string>

void TraceText(const WCHAR* text) {
    OutputDebugStringW(text);
    // "%s" of the wide printf is a narrow string for one of our compilers; this is what it means.
    fputws(text, stderr);
    std::fflush(stderr);
}

namespace {

// A text that does not fit is cut, but keeps the line end that its format gave it: without that the
// next line would go on in the same one.
template <std::size_t kRoom>
void FormatLine(WCHAR (&text)[kRoom], const WCHAR* format, std::va_list arguments) {
    FormatWideV(text, kRoom, format, arguments);
    const std::size_t length = std::char_traits<WCHAR>::length(text);
    const std::size_t formatLength = std::char_traits<WCHAR>::length(format);
    if (length == kRoom - 1 && formatLength > 0 && format[formatLength - 1] == '\n') {
        text[length - 1] = '\n';
    }
}

} // namespace

void DebugTrace(const WCHAR* format, ...) {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    WCHAR stamp[32];
    FormatWide(stamp, std::size(stamp), TEXT("[%02d:%02d:%02d.%03d] "), now.wHour, now.wMinute,
               now.wSecond, now.wMilliseconds);

    WCHAR text[1024];
    std::va_list arguments;
    va_start(arguments, format);
    FormatLine(text, format, arguments);
    va_end(arguments);

    WCHAR line[1100];
    FormatWide(line, std::size(line), TEXT("%s%s"), stamp, text);
    TraceText(line);
}

namespace {

template <std::size_t kRoom>
void TraceFormatted(const WCHAR* format, std::va_list arguments) {
    WCHAR text[kRoom];
    FormatLine(text, format, arguments);
    TraceText(text);
}

} // namespace

void AudioTrace(const WCHAR* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    TraceFormatted<512>(format, arguments);
    va_end(arguments);
}

void ProxyTrace(const WCHAR* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    TraceFormatted<1024>(format, arguments);
    va_end(arguments);
}

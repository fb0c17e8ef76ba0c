// UTF-8 and UTF-16, with the Windows calls' way of counting. Text that is not well formed never
// fails: what cannot be read becomes U+FFFD.
#include "text/utf.h"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// What a conversion writes to: counts everything, stores only what fits.
template <typename Unit>
class BoundedOutput {
public:
    BoundedOutput(Unit* buffer, int room) : buffer_(buffer), room_(room) {}

    void Put(Unit unit) {
        if (count_ < room_) {
            buffer_[count_] = unit;
        }
        ++count_;
    }

    // The Windows result: needed units when only counting, else written units, 0 on overflow.
    int Result() const {
        if (count_ > std::numeric_limits<int>::max()) {
            return 0;
        }
        return room_ == 0 || count_ <= room_ ? static_cast<int>(count_) : 0;
    }

private:
    Unit* buffer_;
    std::int64_t room_;
    std::int64_t count_ = 0;
};

// Reads one character and moves `text` past it. A malformed sequence is taken up to the first
// byte that cannot continue it (Unicode's "maximal subpart" practice) and read as U+FFFD.
char32_t ReadUtf8(const unsigned char*& text, const unsigned char* end) {
    const unsigned char lead = *text++;
    if (lead < 0x80) {
        return lead;
    }
    int more = 0;
    unsigned char low = 0x80; // bounds of the second byte: no overlong form, surrogate or > 10FFFF
    unsigned char high = 0xBF;
    char32_t value = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        more = 1;
        value = lead & 0x1Fu;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        more = 2;
        value = lead & 0x0Fu;
        low = lead == 0xE0 ? 0xA0 : low;
        high = lead == 0xED ? 0x9F : high;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        more = 3;
        value = lead & 0x07u;
        low = lead == 0xF0 ? 0x90 : low;
        high = lead == 0xF4 ? 0x8F : high;
    } else {
        return kReplacement;
    }
    for (; more > 0; --more) {
        if (text == end || *text < low || *text > high) {
            return kReplacement;
        }
        value = (value << 6) | (*text++ & 0x3Fu);
        low = 0x80;
        high = 0xBF;
    }
    return value;
}

bool IsHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// Reads one character and moves `text` past it; a lone surrogate is read as U+FFFD.
char32_t ReadUtf16(const WCHAR*& text, const WCHAR* end) {
    const char32_t unit = *text++;
    if (IsHighSurrogate(unit) && text != end && IsLowSurrogate(*text)) {
        return 0x10000 + ((unit - 0xD800) << 10) + (*text++ - 0xDC00u);
    }
    return IsHighSurrogate(unit) || IsLowSurrogate(unit) ? kReplacement : unit;
}

template <typename Output>
void WriteUtf16(char32_t character, Output& output) {
    if (character < 0x10000) {
        output.Put(static_cast<WCHAR>(character));
        return;
    }
    const char32_t offset = character - 0x10000;
    output.Put(static_cast<WCHAR>(0xD800 + (offset >> 10)));
    output.Put(static_cast<WCHAR>(0xDC00 + (offset & 0x3FF)));
}

template <typename Output>
void WriteUtf8(char32_t character, Output& output) {
    if (character < 0x80) {
        output.Put(static_cast<char>(character));
        return;
    }
    int shift = character < 0x800 ? 6 : character < 0x10000 ? 12 : 18;
    const unsigned lead = shift == 6 ? 0xC0 : shift == 12 ? 0xE0 : 0xF0;
    output.Put(static_cast<char>(lead | (character >> shift)));
    while (shift > 0) {
        shift -= 6;
        output.Put(static_cast<char>(0x80 | ((character >> shift) & 0x3F)));
    }
}

bool BadArguments(UINT codePage, DWORD flags, const void* in, int length, const void* out,
                  int room) {
    return codePage != CP_UTF8 || flags != 0 || in == nullptr || length == 0 || length < -1 ||
           room < 0 || (room > 0 && out == nullptr);
}

} // namespace

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR wide,
                        int room) {
    if (BadArguments(codePage, flags, text, length, wide, room)) {
        return 0;
    }
    const std::size_t size =
        length == -1 ? std::strlen(text) + 1 : static_cast<std::size_t>(length);
    const auto* next = reinterpret_cast<const unsigned char*>(text);
    const auto* end = next + size;
    BoundedOutput<WCHAR> output(wide, room);
    while (next != end) {
        WriteUtf16(ReadUtf8(next, end), output);
    }
    return output.Result();
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int length, LPSTR text, int room,
                        LPCSTR defaultChar, BOOL* usedDefaultChar) {
    if (BadArguments(codePage, flags, wide, length, text, room) || defaultChar != nullptr ||
        usedDefaultChar != nullptr) {
        return 0;
    }
    const std::size_t size =
        length == -1 ? std::char_traits<WCHAR>::length(wide) + 1 : static_cast<std::size_t>(length);
    const WCHAR* next = wide;
    const WCHAR* end = wide + size;
    BoundedOutput<char> output(text, room);
    while (next != end) {
        WriteUtf8(ReadUtf16(next, end), output);
    }
    return output.Result();
}

std::string text::ToUtf8(std::u16string_view wide) {
    if (wide.empty()) {
        return {}; // a length of 0 is an error to the calls
    }
    const int units = static_cast<int>(wide.size());
    const int bytes =
        WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, utf8.data(), bytes, nullptr, nullptr);
    return utf8;
}

std::u16string text::ToWide(std::string_view utf8) {
    if (utf8.empty()) {
        return {};
    }
    const int bytes = static_cast<int>(utf8.size());
    const int units = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, nullptr, 0);
    std::u16string wide(static_cast<std::size_t>(units), u'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, wide.data(), units);
    return wide;
}

int fputws(const WCHAR* line, std::FILE* stream) {
    // One call, so that the lines of two threads do not mix.
    return std::fputs(text::ToUtf8(line).c_str(), stream);
}

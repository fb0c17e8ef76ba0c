// The bounded wide formatter, for the conversions that the program uses.
#include <windows.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <string>
#include <string_view>

namespace {

enum class Size { Short, Int, Long, LongLong };

struct Conversion {
    bool leftAlign = false;
    bool zeroPad = false;
    int width = 0;
    int precision = -1; // -1: none given
    Size size = Size::Int;
    WCHAR type = 0;
};

// Stores what fits and remembers whether anything did not.
class BoundedText {
public:
    BoundedText(WCHAR* buffer, std::size_t room) : buffer_(buffer), room_(room) {}

    void Put(WCHAR unit) {
        if (length_ < room_) {
            buffer_[length_] = unit;
        }
        ++length_;
    }
    void Repeat(WCHAR unit, std::ptrdiff_t count) {
        for (; count > 0; --count) {
            Put(unit);
        }
    }
    void Put(std::u16string_view text) {
        for (const WCHAR unit : text) {
            Put(unit);
        }
    }

    int Finish() {
        if (length_ > room_) {
            return -1;
        }
        if (length_ < room_) {
            buffer_[length_] = 0;
        }
        return static_cast<int>(length_);
    }

private:
    WCHAR* buffer_;
    std::size_t room_;
    std::size_t length_ = 0;
};

bool IsDigit(WCHAR unit) {
    return unit >= u'0' && unit <= u'9';
}

int ReadNumber(const WCHAR*& format) {
    int number = 0;
    while (IsDigit(*format)) {
        number = number < 10000 ? number * 10 + (*format - u'0') : number;
        ++format;
    }
    return number;
}

// Reads what follows a '%' and moves `format` past it.
Conversion ReadConversion(const WCHAR*& format) {
    Conversion conversion;
    for (; *format == u'-' || *format == u'0'; ++format) {
        conversion.leftAlign = conversion.leftAlign || *format == u'-';
        conversion.zeroPad = conversion.zeroPad || *format == u'0';
    }
    conversion.width = ReadNumber(format);
    if (*format == u'.') {
        ++format;
        conversion.precision = ReadNumber(format);
    }
    if (*format == u'h') {
        ++format;
        conversion.size = Size::Short;
    } else if (*format == u'l') {
        ++format;
        conversion.size = Size::Long;
        if (*format == u'l') {
            ++format;
            conversion.size = Size::LongLong;
        }
    }
    conversion.type = *format;
    if (*format != 0) {
        ++format;
    }
    return conversion;
}

void PutPadded(BoundedText& out, const Conversion& conversion, std::u16string_view sign,
               std::u16string_view text) {
    const std::ptrdiff_t padding =
        conversion.width - static_cast<std::ptrdiff_t>(sign.size() + text.size());
    const bool zeros = conversion.zeroPad && !conversion.leftAlign;
    if (!zeros && !conversion.leftAlign) {
        out.Repeat(u' ', padding);
    }
    out.Put(sign);
    if (zeros) {
        out.Repeat(u'0', padding);
    }
    out.Put(text);
    if (conversion.leftAlign) {
        out.Repeat(u' ', padding);
    }
}

void PutNumber(BoundedText& out, const Conversion& conversion, bool negative,
               unsigned long long magnitude) {
    const unsigned base = conversion.type == u'x' || conversion.type == u'X' ? 16 : 10;
    const char16_t* digits = conversion.type == u'x' ? u"0123456789abcdef" : u"0123456789ABCDEF";
    WCHAR text[24];
    std::size_t first = std::size(text);
    do {
        text[--first] = digits[magnitude % base];
        magnitude /= base;
    } while (magnitude != 0);
    PutPadded(out, conversion, negative ? u"-" : u"", {text + first, std::size(text) - first});
}

// `long` is 32 bits wide for whoever wrote the format, whatever it is here.
long long TakeSigned(Size size, std::va_list& arguments) {
    switch (size) {
    case Size::Short:
        return static_cast<short>(va_arg(arguments, int));
    case Size::Int:
        return va_arg(arguments, int);
    case Size::Long:
        return static_cast<std::int32_t>(va_arg(arguments, long));
    case Size::LongLong:
        break;
    }
    return va_arg(arguments, long long);
}

unsigned long long TakeUnsigned(Size size, std::va_list& arguments) {
    switch (size) {
    case Size::Short:
        return static_cast<unsigned short>(va_arg(arguments, unsigned));
    case Size::Int:
        return va_arg(arguments, unsigned);
    case Size::Long:
        return static_cast<std::uint32_t>(va_arg(arguments, unsigned long));
    case Size::LongLong:
        break;
    }
    return va_arg(arguments, unsigned long long);
}

// Six decimals unless told otherwise, and always a point, whatever the locale has.
void PutFixed(BoundedText& out, const Conversion& conversion, double value) {
    constexpr int kMostDecimals = 40;
    char digits[400]; // the largest double has 309 digits before the point
    const int decimals =
        conversion.precision < 0 ? 6 : std::min(conversion.precision, kMostDecimals);
    const auto [end, error] = std::to_chars(std::begin(digits), std::end(digits), std::abs(value),
                                            std::chars_format::fixed, decimals);
    const std::u16string text(digits, end);
    PutPadded(out, conversion, std::signbit(value) ? u"-" : u"", text);
}

void PutString(BoundedText& out, const Conversion& conversion, const WCHAR* text) {
    text = text != nullptr ? text : u"(null)";
    std::size_t length = 0;
    const auto limit = static_cast<std::size_t>(conversion.precision);
    while ((conversion.precision < 0 || length < limit) && text[length] != 0) {
        ++length;
    }
    PutPadded(out, conversion, u"", {text, length});
}

} // namespace

int _vsnwprintf(WCHAR* buffer, std::size_t room, const WCHAR* format, std::va_list arguments) {
    BoundedText out(buffer, room);
    std::va_list rest; // va_arg in other functions needs a list that is ours
    va_copy(rest, arguments);
    while (*format != 0) {
        if (*format != u'%') {
            out.Put(*format++);
            continue;
        }
        const Conversion conversion = ReadConversion(++format);
        switch (conversion.type) {
        case u'd':
        case u'i': {
            const long long value = TakeSigned(conversion.size, rest);
            const auto magnitude = static_cast<unsigned long long>(value);
            PutNumber(out, conversion, value < 0, value < 0 ? 0 - magnitude : magnitude);
            break;
        }
        case u'u':
        case u'x':
        case u'X':
            PutNumber(out, conversion, false, TakeUnsigned(conversion.size, rest));
            break;
        case u'c': {
            const auto unit = static_cast<WCHAR>(va_arg(rest, int));
            PutPadded(out, conversion, u"", {&unit, 1});
            break;
        }
        case u'f':
            PutFixed(out, conversion, va_arg(rest, double));
            break;
        case u's':
            PutString(out, conversion, va_arg(rest, const WCHAR*));
            break;
        default: // '%', and what is not known stands for itself
            if (conversion.type != 0) {
                out.Put(conversion.type);
            }
            break;
        }
    }
    va_end(rest);
    return out.Finish();
}

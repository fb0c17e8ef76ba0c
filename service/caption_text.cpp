#include "caption_text.h"

#include <cstddef>

namespace service {
namespace {

unsigned char ByteAt(std::string_view text, std::size_t position) {
    return position < text.size() ? static_cast<unsigned char>(text[position]) : 0;
}

bool IsContinuation(unsigned char byte) {
    return (byte & 0xC0U) == 0x80U;
}

// Length of the well-formed UTF-8 character at the front, 0 if there is none. The second byte's
// range shuts out overlong forms, surrogates and what lies above U+10FFFF.
std::size_t CharacterLength(std::string_view text) {
    const unsigned char first = ByteAt(text, 0);
    const unsigned char second = ByteAt(text, 1);
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xC2 && first <= 0xDF) {
        return IsContinuation(second) ? 2 : 0;
    }
    if (first >= 0xE0 && first <= 0xEF) {
        const unsigned char lowest = first == 0xE0 ? 0xA0 : 0x80;
        const unsigned char highest = first == 0xED ? 0x9F : 0xBF;
        return second >= lowest && second <= highest && IsContinuation(ByteAt(text, 2)) ? 3 : 0;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        const unsigned char lowest = first == 0xF0 ? 0x90 : 0x80;
        const unsigned char highest = first == 0xF4 ? 0x8F : 0xBF;
        return second >= lowest && second <= highest && IsContinuation(ByteAt(text, 2)) &&
                       IsContinuation(ByteAt(text, 3))
                   ? 4
                   : 0;
    }
    return 0;
}

// Characters that never reach a caption. The underscore marks a gap in a dictionary entry.
bool SeparatesWords(unsigned char byte) {
    constexpr std::string_view kUnwanted = " \"\\{}_";
    return byte < 0x20 || byte == 0x7F || kUnwanted.find(static_cast<char>(byte)) != kUnwanted.npos;
}

bool IsEnglishI(std::string_view word) {
    return word == "i" || word.starts_with("i'");
}

} // namespace

std::string SpellEnglish(std::string_view words) {
    std::string sentence;
    while (!words.empty()) {
        const std::size_t end = words.find(' ');
        const std::string_view word = words.substr(0, end);
        words.remove_prefix(end == words.npos ? words.size() : end + 1);
        if (word.empty()) {
            continue;
        }
        if (!sentence.empty()) {
            sentence += ' ';
        }
        const std::size_t start = sentence.size();
        sentence += word;
        if (IsEnglishI(word)) {
            sentence[start] = 'I';
        }
    }
    return CapitalizeFirst(std::move(sentence));
}

std::string CapitalizeFirst(std::string text) {
    std::size_t at = 0;
    while (text.compare(at, 2, "¿") == 0 || text.compare(at, 2, "¡") == 0) {
        at += 2;
    }
    const unsigned char first = ByteAt(text, at);
    const unsigned char second = ByteAt(text, at + 1);
    constexpr unsigned char kDivisionSign = 0xB7; // U+00F7, the one non-letter in its row
    if (first >= 'a' && first <= 'z') {
        text[at] = static_cast<char>(first - 0x20);
    } else if (first == 0xC3 && second >= 0xA0 && second <= 0xBE && second != kDivisionSign) {
        text[at + 1] = static_cast<char>(second - 0x20);
    }
    return text;
}

std::string Presentable(std::string_view text) {
    std::string clean;
    bool blankDue = false;
    while (!text.empty()) {
        const std::size_t length = CharacterLength(text);
        if (length == 0 || SeparatesWords(ByteAt(text, 0))) {
            blankDue = true;
            text.remove_prefix(1);
            continue;
        }
        if (blankDue && !clean.empty()) {
            clean += ' ';
        }
        blankDue = false;
        clean += text.substr(0, length);
        text.remove_prefix(length);
    }
    return clean;
}

} // namespace service

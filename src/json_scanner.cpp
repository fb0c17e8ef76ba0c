#include "json_scanner.h"

#include <cerrno>
#include <cstdlib>
#include <optional>

namespace {

constexpr auto kNone = std::string::npos;

// Position after the first ':' that follows the first `"key"`.
std::optional<std::size_t> FindValue(const std::string& body, std::string_view key) {
    std::string pattern;
    pattern.reserve(key.size() + 2);
    pattern.append(1, '"').append(key).append(1, '"');
    const std::size_t found = body.find(pattern);
    if (found == kNone) {
        return std::nullopt;
    }
    const std::size_t colon = body.find(':', found + pattern.size());
    if (colon == kNone) {
        return std::nullopt;
    }
    return colon + 1;
}

std::optional<std::string> FindString(const std::string& body, std::string_view key) {
    const auto value = FindValue(body, key);
    if (!value) {
        return std::nullopt;
    }
    const std::size_t open = body.find('"', *value);
    if (open == kNone) {
        return std::nullopt;
    }
    const std::size_t close = body.find('"', open + 1);
    if (close == kNone) {
        return std::nullopt;
    }
    return body.substr(open + 1, close - open - 1);
}

// Line ends are not passed over: a value on the next line is not seen by the boolean reader.
std::size_t SkipBlanks(const std::string& body, std::size_t position) {
    const std::size_t found = body.find_first_not_of(" \t", position);
    return found == kNone ? body.size() : found;
}

} // namespace

std::string ExtractJsonString(const std::string& body, std::string_view key) {
    return FindString(body, key).value_or(std::string());
}

bool ExtractJsonBool(const std::string& body, std::string_view key) {
    const auto value = FindValue(body, key);
    return value && body.compare(SkipBlanks(body, *value), 4, "true") == 0;
}

double ExtractJsonNumber(const std::string& body, std::string_view key) {
    const auto value = FindValue(body, key);
    if (!value) {
        return 0.0;
    }
    const char* text = body.c_str() + SkipBlanks(body, *value);
    char* end = nullptr;
    errno = 0;
    const double number = std::strtod(text, &end);
    return end == text || errno == ERANGE ? 0.0 : number;
}

std::string ExtractDetail(const std::string& body) {
    return FindString(body, "detail").value_or(body);
}

std::vector<std::string> SplitJsonArray(const std::string& body) {
    std::vector<std::string> objects;
    const std::size_t first = body.find('[');
    const std::size_t last = body.rfind(']');
    if (first == kNone || last == kNone || first + 1 > last) {
        return objects;
    }
    int depth = 0;
    std::size_t start = 0;
    for (std::size_t i = first + 1; i <= last; ++i) {
        if (body[i] == '{') {
            if (depth == 0) {
                start = i;
            }
            ++depth;
        } else if (body[i] == '}') {
            --depth;
            if (depth == 0) {
                objects.push_back(body.substr(start, i - start + 1));
            }
        }
    }
    return objects;
}

#include "command_line.h"

#include <algorithm>
#include <charconv>

namespace service {

std::optional<std::string> CommandLine::Value(const std::string& option) const {
    const auto found = options.find(option);
    if (found == options.end()) {
        return std::nullopt;
    }
    return found->second;
}

CommandLine ParseCommandLine(std::span<const std::string_view> arguments,
                             std::span<const Option> known) {
    CommandLine line;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string_view argument = arguments[i];
        if (!argument.starts_with("--")) {
            line.words.emplace_back(argument);
            continue;
        }
        const std::size_t equals = argument.find('=');
        const std::string name(argument.substr(0, equals));
        const auto option = std::ranges::find(known, name, &Option::name);
        if (option == known.end()) {
            throw UsageError("there is no option " + name);
        }
        std::string value;
        if (!option->takesValue && equals != argument.npos) {
            throw UsageError(name + " takes no value");
        }
        if (option->takesValue && equals == argument.npos && i + 1 == arguments.size()) {
            throw UsageError(name + " needs a value");
        }
        if (option->takesValue) {
            value = equals == argument.npos ? arguments[++i] : argument.substr(equals + 1);
        }
        if (!line.options.emplace(name, value).second) {
            throw UsageError(name + " is given twice");
        }
    }
    return line;
}

std::int64_t ParseNumber(std::string_view option, std::string_view text, std::int64_t lowest,
                         std::int64_t highest) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < lowest || number > highest) {
        throw UsageError(std::string(option) + " must be a whole number from " +
                         std::to_string(lowest) + " to " + std::to_string(highest));
    }
    return number;
}

} // namespace service

// Reading a command line: words, and options that begin with `--`. Knows no command.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace service {

class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Option {
    std::string_view name; // with its dashes
    bool takesValue;
};

struct CommandLine {
    std::vector<std::string> words;             // all that is no option, in order
    std::map<std::string, std::string> options; // an empty value for those that take none

    bool Has(const std::string& option) const { return options.contains(option); }
    std::optional<std::string> Value(const std::string& option) const;
};

// Throws UsageError for options that are unknown, given twice or without their value. A value
// follows as the next argument or behind `=`.
CommandLine ParseCommandLine(std::span<const std::string_view> arguments,
                             std::span<const Option> known);

// A whole number within the bounds; throws UsageError, which names the option.
std::int64_t ParseNumber(std::string_view option, std::string_view text, std::int64_t lowest,
                         std::int64_t highest);

} // namespace service

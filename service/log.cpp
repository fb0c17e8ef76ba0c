#include "log.h"

#include <unistd.h>

#include <array>
#include <ctime>
#include <string>

namespace service {

void Log(std::string_view text) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 32> stamp{};
    const std::size_t length = std::strftime(stamp.data(), stamp.size(), "%F %T ", &local);

    std::string line(stamp.data(), length);
    line.append(text).push_back('\n');
    // A log that cannot be written is no reason to stop serving.
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
}

} // namespace service

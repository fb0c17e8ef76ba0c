// The service's log: one short line to stderr for each event. Never given an access key.
#pragma once

#include <string_view>

namespace service {

// Any thread; a line goes out in one write, so lines of several threads do not mix.
void Log(std::string_view text);

} // namespace service

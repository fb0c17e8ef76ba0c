// Where the user's running programs find each other.
#pragma once

#include <string>

namespace process {

// The user's private runtime folder (XDG_RUNTIME_DIR; else a folder of this user's own, mode 0700,
// below the system's temporary one). Without a slash at its end. Empty when neither can be had.
std::string RuntimeFolder();

} // namespace process

// The folders of the user who runs the program, by the XDG rules. As the system writes paths,
// without a slash at the end; read from the environment anew at each call.
#pragma once

#include <string>

namespace files {

// Empty when the user has none.
std::string HomeFolder();

// Where programs keep their settings; need not be there. Empty when there is no home to be had.
std::string ConfigFolder();

// What the user has set, else "Desktop" below the home; the home itself when that folder is not
// there. Empty when there is no home either.
std::string DesktopFolder();

} // namespace files

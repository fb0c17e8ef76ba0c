// Paths as the program writes them, with `\` or `/` between their parts, and as the system does: in
// UTF-8, with `/`.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace files {

std::string ToSystemPath(LPCWSTR path);

// With `\`, after which the program looks for the last part. What is not UTF-8 becomes U+FFFD and
// does not lead back.
std::u16string ToProgramPath(std::string_view path);

} // namespace files

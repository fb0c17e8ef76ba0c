// UTF-8 and UTF-16 for the rooms, as whole strings. What is not well formed becomes U+FFFD.
#pragma once

#include <string>
#include <string_view>

namespace text {

std::string ToUtf8(std::u16string_view wide);
std::u16string ToWide(std::string_view utf8);

} // namespace text

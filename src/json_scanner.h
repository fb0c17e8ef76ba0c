// A flat text scanner for the few shapes of answer that the service gives; not a JSON parser. It
// builds no tree, decodes no escapes and knows no nesting: a key is found wherever its quoted name
// first stands. Pure functions on byte strings; what cannot be found gives the empty value.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// The bytes between the two double quotes that follow the key's colon, unchanged.
std::string ExtractJsonString(const std::string& body, std::string_view key);

// True exactly when `true` follows the key's colon, blanks and tabs passed over.
bool ExtractJsonBool(const std::string& body, std::string_view key);

// What the standard conversion to double makes of the text after the key's colon; 0.0 when that is
// no number or out of range.
double ExtractJsonNumber(const std::string& body, std::string_view key);

// The string value of `detail`, or the whole body when there is none.
std::string ExtractDetail(const std::string& body);

// The texts of the objects between the first '[' and the last ']', each from '{' to '}'. Every
// brace counts, also one inside a string.
std::vector<std::string> SplitJsonArray(const std::string& body);

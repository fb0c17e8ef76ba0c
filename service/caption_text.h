// The wording of captions: how recognised words are spelled, and which characters may go out.
// Knows nothing of recognisers, translators or JSON.
#pragma once

#include <string>
#include <string_view>

namespace service {

// The recogniser's lower-case words as an English sentence begins: "i'm here" -> "I'm here".
std::string SpellEnglish(std::string_view words);

// First letter in upper case; letters of the Latin-1 range included, opening marks passed over.
std::string CapitalizeFirst(std::string text);

// What a client can read raw: valid UTF-8 without control characters and without the characters
// that end or split a text for a reader that undoes no escapes (`"`, `\`, `{`, `}`). Blanks are
// single, with none at either end.
std::string Presentable(std::string_view text);

} // namespace service

// From English to the languages on offer: which can be agreed on, and by which chains a text
// reaches each. Knows nothing of audio or sessions.
#pragma once

#include "chain_pool.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace service {

// One of the two languages that a client names.
struct ClientLanguage {
    std::string locale; // of speech, such as "en-US"
    std::string code;   // of translation, such as "es"
};

// What a session does: hears one language and writes the other.
struct Conversation {
    std::string spokenLocale;
    std::string targetLocale;
    std::string targetCode;
};

// What can be done with a client's two languages, in either order; nothing when neither is English
// or the other one cannot be translated into.
std::optional<Conversation> AgreeOn(const ClientLanguage& a, const ClientLanguage& b);

// One conversation's way through chains that it shares with others. Used by one thread at a time.
class Translator {
public:
    // Sees to the chains that the conversation needs; the pool outlives this.
    Translator(const Conversation& conversation, ChainPool& chains);

    // A presentable translation, empty when there is none; nothing when others had all chains in
    // use for so long.
    std::optional<std::string> Translate(const std::string& english,
                                         std::chrono::milliseconds patience);

private:
    ChainPool& chains_;
    std::vector<std::string> modes_; // in the order in which a text runs through them
};

} // namespace service

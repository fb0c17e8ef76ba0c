// From English to the languages on offer: which can be agreed on, and by which chains a text
// reaches each. Knows nothing of audio or sessions.
#pragma once

#include "apertium_chain.h"

#include <memory>
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

// Used by one thread at a time.
class Translator {
public:
    // Starts the chains that the conversation needs.
    explicit Translator(const Conversation& conversation);

    // A presentable translation, or an empty text when there is none.
    std::string Translate(const std::string& english);

private:
    std::vector<std::unique_ptr<ApertiumChain>> chains_; // in the order in which a text runs
};

} // namespace service

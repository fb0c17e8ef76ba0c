#include "translator.h"

#include "caption_text.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace service {
namespace {

constexpr std::size_t kLongestLocale = 35; // as long as the longest language tag need be

struct Route {
    std::string_view code;
    std::string_view locale; // empty: any
    std::string_view first;  // modes, in the order in which a text runs through them
    std::string_view second; // empty: none
};

// First match counts. Only Spanish is reached from English directly.
constexpr std::array kRoutes = {
    Route{"es", "", "eng-spa", ""},        Route{"pt", "pt-BR", "eng-spa", "es-pt_BR"},
    Route{"pt", "", "eng-spa", "es-pt"},   Route{"fr", "", "eng-spa", "es-fr"},
    Route{"it", "", "eng-spa", "spa-ita"},
};

const Route* FindRoute(std::string_view code, std::string_view locale) {
    const auto* const route = std::ranges::find_if(kRoutes, [&](const Route& candidate) {
        return candidate.code == code && (candidate.locale.empty() || candidate.locale == locale);
    });
    return route == kRoutes.end() ? nullptr : route;
}

// Any English: the locale goes back to the client with every caption, so its form is checked.
bool IsEnglish(std::string_view locale) {
    return (locale == "en" || locale.starts_with("en-")) && locale.size() <= kLongestLocale &&
           std::ranges::all_of(locale, [](unsigned char character) {
               return character == '-' || std::isalnum(character) != 0;
           });
}

} // namespace

std::optional<Conversation> AgreeOn(const ClientLanguage& a, const ClientLanguage& b) {
    const ClientLanguage& spoken = IsEnglish(a.locale) ? a : b;
    const ClientLanguage& target = IsEnglish(a.locale) ? b : a;
    if (!IsEnglish(spoken.locale) || target.locale.size() > kLongestLocale ||
        FindRoute(target.code, target.locale) == nullptr) {
        return std::nullopt;
    }
    return Conversation{spoken.locale, target.locale, target.code};
}

Translator::Translator(const Conversation& conversation, ChainPool& chains) : chains_(chains) {
    const Route* const route = FindRoute(conversation.targetCode, conversation.targetLocale);
    if (route == nullptr) {
        return;
    }
    for (const std::string_view mode : {route->first, route->second}) {
        if (!mode.empty()) {
            modes_.emplace_back(mode);
            chains_.Prepare(modes_.back());
        }
    }
}

std::optional<std::string> Translator::Translate(const std::string& english,
                                                 std::chrono::milliseconds patience) {
    if (modes_.empty()) {
        return std::string();
    }
    std::string text = english;
    for (const std::string& mode : modes_) {
        std::optional<std::string> translation = chains_.Translate(mode, text, patience);
        if (!translation) {
            return std::nullopt;
        }
        text = std::move(*translation);
    }
    return CapitalizeFirst(Presentable(text));
}

} // namespace service

#include "languages.h"

#include <algorithm>

const std::vector<LanguageEntry> kLanguageSources = {
    {TEXT("中文 (普通话)"), TEXT("zh-CN")},    {TEXT("中文 (粤语)"), TEXT("zh-HK")},
    {TEXT("English (US)"), TEXT("en-US")},     {TEXT("English (UK)"), TEXT("en-GB")},
    {TEXT("English (India)"), TEXT("en-IN")},  {TEXT("日本語"), TEXT("ja-JP")},
    {TEXT("한국어"), TEXT("ko-KR")},           {TEXT("Français"), TEXT("fr-FR")},
    {TEXT("Deutsch"), TEXT("de-DE")},          {TEXT("Español"), TEXT("es-ES")},
    {TEXT("Русский"), TEXT("ru-RU")},          {TEXT("العربية"), TEXT("ar-SA")},
    {TEXT("Português"), TEXT("pt-BR")},        {TEXT("Italiano"), TEXT("it-IT")},
    {TEXT("Nederlands"), TEXT("nl-NL")},       {TEXT("Polski"), TEXT("pl-PL")},
    {TEXT("ภาษาไทย"), TEXT("th-TH")},          {TEXT("Tiếng Việt"), TEXT("vi-VN")},
    {TEXT("Bahasa Indonesia"), TEXT("id-ID")},
};

const std::vector<LanguageEntry> kLanguageTargets = {
    {TEXT("中文 (简体)"), TEXT("zh-Hans")}, {TEXT("中文 (繁体)"), TEXT("zh-Hant")},
    {TEXT("English"), TEXT("en")},          {TEXT("日本語"), TEXT("ja")},
    {TEXT("한국어"), TEXT("ko")},           {TEXT("Français"), TEXT("fr")},
    {TEXT("Deutsch"), TEXT("de")},          {TEXT("Español"), TEXT("es")},
    {TEXT("Русский"), TEXT("ru")},          {TEXT("العربية"), TEXT("ar")},
    {TEXT("Português"), TEXT("pt")},        {TEXT("Italiano"), TEXT("it")},
    {TEXT("Nederlands"), TEXT("nl")},       {TEXT("Polski"), TEXT("pl")},
    {TEXT("ภาษาไทย"), TEXT("th")},          {TEXT("Tiếng Việt"), TEXT("vi")},
    {TEXT("Bahasa Indonesia"), TEXT("id")},
};

int RowOfLanguage(const WideString& code) {
    const auto row =
        std::find_if(kLanguageSources.begin(), kLanguageSources.end(),
                     [&code](const LanguageEntry& language) { return language.code == code; });
    return static_cast<int>(row - kLanguageSources.begin());
}

WideString ResolveTargetCode(const WideString& code) {
    // The service tells the two Chinese scripts apart, which the locale's prefix does not.
    if (code == TEXT("zh-CN")) {
        return TEXT("zh-Hans");
    }
    if (code == TEXT("zh-HK")) {
        return TEXT("zh-Hant");
    }
    WideString prefix = code.substr(0, code.find(TEXT('-')));
    for (const LanguageEntry& target : kLanguageTargets) {
        if (target.code == prefix) {
            return target.code;
        }
    }
    return prefix;
}

#include "config_popup.h"

#include "stored_values.h"

#include <utility>

namespace {

constexpr DWORD kDefaultRowA = 0; // "zh-CN"
constexpr DWORD kDefaultRowB = 2; // "en-US"

// The locale of a stored row; empty where the row is none of the table's.
WideString StoredLocale(HKEY key, const WCHAR* name, DWORD fallback) {
    const DWORD row = ReadStoredNumber(key, name, fallback);
    return row < kLanguageSources.size() ? kLanguageSources[row].code : WideString();
}

} // namespace

ConfigPopup::ConfigPopup(HWND owner, const HKEY* key, Start onStart)
    : owner_(owner), key_(key), onStart_(std::move(onStart)) {}

ConfigData ConfigPopup::BuildConfig() const {
    ConfigData config;
    config.access_key = ReadStoredText(*key_, TEXT("access_key"));
    config.lang_a = StoredLocale(*key_, TEXT("lang_a"), kDefaultRowA);
    config.lang_a_tgt = ResolveTargetCode(config.lang_a);
    config.lang_b = StoredLocale(*key_, TEXT("lang_b"), kDefaultRowB);
    config.lang_b_tgt = ResolveTargetCode(config.lang_b);
    return config;
}

void ConfigPopup::Show() {
    visible_ = true;
}

void ConfigPopup::Hide() {
    visible_ = false;
}

void ConfigPopup::Reposition() {}

void ConfigPopup::SetRunning(bool running) {
    running_ = running;
}

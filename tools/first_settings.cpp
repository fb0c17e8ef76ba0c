// Stores settings for a first start: each value only where none is stored.
#include "languages.h"
#include "stored_values.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

namespace {

bool IsStored(HKEY key, const WideString& name) {
    DWORD size = 0;
    return RegQueryValueExW(key, name.c_str(), nullptr, nullptr, nullptr, &size) == 0;
}

// The row of a speech locale such as "en-US".
std::optional<DWORD> RowOf(const WideString& code) {
    const auto row = std::find_if(kLanguageSources.begin(), kLanguageSources.end(),
                                  [&](const LanguageEntry& entry) { return entry.code == code; });
    if (row == kLanguageSources.end()) {
        return std::nullopt;
    }
    return static_cast<DWORD>(row - kLanguageSources.begin());
}

// False for a setting or a value that there is not.
bool Store(HKEY key, const std::string& name, const std::string& value) {
    const WideString wideName = Utf8ToWide(name);
    const WideString text = Utf8ToWide(value);
    if (IsStored(key, wideName)) {
        return true;
    }
    if (name == "access_key") {
        WriteStoredText(key, wideName.c_str(), text);
        return true;
    }
    if ((name == "use_mic" || name == "use_loopback") && (value == "0" || value == "1")) {
        WriteStoredNumber(key, wideName.c_str(), value == "1" ? 1 : 0);
        return true;
    }
    const std::optional<DWORD> row = RowOf(text);
    if ((name == "lang_a" || name == "lang_b") && row) {
        WriteStoredNumber(key, wideName.c_str(), *row);
        return true;
    }
    return false;
}

} // namespace

int main(int argumentCount, char** arguments) {
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, TEXT("Software\\Kelvarin\\Config"), 0, nullptr, 0,
                        KEY_ALL_ACCESS, nullptr, &key, nullptr) != 0) {
        std::fputs("the settings cannot be opened\n", stderr);
        return 1;
    }
    int result = 0;
    for (int i = 1; i < argumentCount; ++i) {
        const std::string setting = arguments[i];
        const std::size_t equals = setting.find('=');
        if (equals == std::string::npos ||
            !Store(key, setting.substr(0, equals), setting.substr(equals + 1))) {
            std::fprintf(stderr, "no such setting: %s\n", setting.c_str());
            result = 2;
        }
    }
    RegCloseKey(key);
    return result;
}

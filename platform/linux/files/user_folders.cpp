#include "files/user_folders.h"

#include "files/paths.h"

#include <pwd.h>
#include <shlobj.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string_view>
#include <vector>

namespace files {
namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kDesktopSetting = "XDG_DESKTOP_DIR";

std::string WithoutEndSlash(std::string path) {
    while (path.size() > 1 && path.ends_with('/')) {
        path.pop_back();
    }
    return path;
}

// Empty where it is not an absolute path, which counts as not set.
std::string FolderOfVariable(const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr && value[0] == '/' ? WithoutEndSlash(value) : std::string();
}

std::string FolderOfAccount() {
    std::vector<char> room(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, room.data(), room.size(), &found) != 0 || found == nullptr) {
        return {};
    }
    return WithoutEndSlash(found->pw_dir);
}

void SkipBlanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
}

bool Skip(std::string_view& text, std::string_view expected) {
    if (!text.starts_with(expected)) {
        return false;
    }
    text.remove_prefix(expected.size());
    return true;
}

// What stands between the quotes, with `\` taking the meaning of the character after it. Nothing
// when they are not closed.
std::optional<std::string> QuotedText(std::string_view text) {
    if (!Skip(text, "\"")) {
        return std::nullopt;
    }
    std::string value;
    while (!text.empty() && text.front() != '"') {
        if (text.front() == '\\' && text.size() > 1) {
            text.remove_prefix(1);
        }
        value += text.front();
        text.remove_prefix(1);
    }
    return text.empty() ? std::nullopt : std::optional(value);
}

// The folder that a line of the user's settings gives for the desktop. Nothing for every other
// line, and for a folder that is neither absolute nor the home or something below it.
std::optional<std::string> DesktopOfLine(std::string_view line, const std::string& home) {
    SkipBlanks(line);
    if (!Skip(line, kDesktopSetting)) {
        return std::nullopt;
    }
    SkipBlanks(line);
    if (!Skip(line, "=")) {
        return std::nullopt;
    }
    SkipBlanks(line);
    const std::optional<std::string> value = QuotedText(line);
    if (!value) {
        return std::nullopt;
    }
    std::string_view below = *value;
    if (Skip(below, "$HOME") && (below.empty() || below.front() == '/')) {
        return WithoutEndSlash(home + std::string(below));
    }
    return value->starts_with('/') ? std::optional(WithoutEndSlash(*value)) : std::nullopt;
}

// The last line that says something counts, as for the shell that the format comes from.
std::string DesktopBySettings(const std::string& home) {
    std::ifstream settings(ConfigFolder() + "/user-dirs.dirs");
    std::string folder;
    for (std::string line; std::getline(settings, line);) {
        folder = DesktopOfLine(line, home).value_or(folder);
    }
    return folder;
}

} // namespace

std::string HomeFolder() {
    std::string folder = FolderOfVariable("HOME");
    return folder.empty() ? FolderOfAccount() : folder;
}

std::string ConfigFolder() {
    if (std::string folder = FolderOfVariable("XDG_CONFIG_HOME"); !folder.empty()) {
        return folder;
    }
    const std::string home = HomeFolder();
    return home.empty() ? std::string() : home + "/.config";
}

std::string DesktopFolder() {
    const std::string home = HomeFolder();
    if (home.empty()) {
        return {};
    }
    std::string folder = DesktopBySettings(home);
    if (folder.empty()) {
        folder = home + "/Desktop";
    }
    // Accounts without a desktop folder have their home for one, as the settings' own tools say.
    std::error_code error;
    for (const std::string& candidate : {folder, home}) {
        if (std::filesystem::is_directory(candidate, error)) {
            return candidate;
        }
    }
    return {};
}

} // namespace files

HRESULT SHGetKnownFolderPath(REFKNOWNFOLDERID folder, DWORD /*flags*/, HANDLE /*token*/,
                             PWSTR* path) {
    if (path == nullptr) {
        return E_INVALIDARG;
    }
    *path = nullptr;
    if (folder != FOLDERID_Desktop) {
        return E_INVALIDARG;
    }
    const std::u16string desktop = files::ToProgramPath(files::DesktopFolder());
    if (desktop.empty()) {
        return static_cast<HRESULT>(0x80070002); // ERROR_FILE_NOT_FOUND
    }
    auto* const given = static_cast<PWSTR>(CoTaskMemAlloc((desktop.size() + 1) * sizeof(WCHAR)));
    if (given == nullptr) {
        return E_OUTOFMEMORY;
    }
    desktop.copy(given, desktop.size());
    given[desktop.size()] = 0;
    *path = given;
    return S_OK;
}

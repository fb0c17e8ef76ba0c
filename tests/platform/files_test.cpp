#include "service/scratch_folder.h"
#include "support/environment_setting.h"

#include <shlobj.h>
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>

namespace {

namespace fs = std::filesystem;

HANDLE Create(const std::u16string& path, DWORD disposition) {
    return CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, disposition,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

std::string Content(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(Files, AWrittenFileHasEachByteAtOnceUnderItsNameInAnyScript) {
    const ScratchFolder scratch;
    const std::u16string folder = scratch.Path().u16string() + u"\\Kelvarin（记录）";
    ASSERT_TRUE(CreateDirectoryW(folder.c_str(), nullptr));
    EXPECT_FALSE(CreateDirectoryW(folder.c_str(), nullptr));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);

    const HANDLE file = Create(folder + u"\\été_🎤.txt", CREATE_NEW);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    const fs::path onDisk = scratch.Path() / "Kelvarin（记录）" / "été_🎤.txt";
    const std::string text("\xEF\xBB\xBF# head\r\n\0\r\n", 14);
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr));
    EXPECT_EQ(written, text.size());
    EXPECT_EQ(Content(onDisk), text) << "nothing may wait in a buffer of the process";
    EXPECT_TRUE(WriteFile(file, "more", 4, nullptr, nullptr));
    EXPECT_TRUE(CloseHandle(file));
    EXPECT_EQ(Content(onDisk), text + "more");
}

TEST(Files, OnlyCreateAlwaysTouchesAFileThatIsThere) {
    const ScratchFolder scratch;
    const fs::path path = scratch / "there.txt";
    std::ofstream(path) << "old";
    EXPECT_EQ(Create(path.u16string(), CREATE_NEW), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_EXISTS);
    EXPECT_EQ(Content(path), "old");
    const HANDLE file = Create(path.u16string(), CREATE_ALWAYS);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    EXPECT_EQ(Content(path), "");
    CloseHandle(file);
}

TEST(Files, WhatCannotBeOpenedOrWrittenSaysWhy) {
    const ScratchFolder scratch;
    const std::u16string base = scratch.Path().u16string();
    const std::pair<std::u16string, DWORD> refused[] = {
        {base + u"\\none\\x.txt", ERROR_PATH_NOT_FOUND},
        {base, ERROR_ACCESS_DENIED},
        {base + u"\\" + std::u16string(300, u'x'), ERROR_INVALID_NAME},
        {u"", ERROR_PATH_NOT_FOUND},
    };
    for (const auto& [path, reason] : refused) {
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(Create(path, CREATE_ALWAYS), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), reason) << fs::path(path);
    }
    EXPECT_FALSE(CreateDirectoryW((base + u"\\a\\b").c_str(), nullptr)) << "one level only";
    EXPECT_FALSE(fs::exists(scratch / "a"));

    const HANDLE full = Create(u"/dev/full", CREATE_ALWAYS);
    DWORD written = 7;
    EXPECT_FALSE(WriteFile(full, "x", 1, &written, nullptr));
    EXPECT_EQ(written, 0U);
    EXPECT_EQ(GetLastError(), ERROR_DISK_FULL);
    CloseHandle(full);
}

TEST(Files, AHandleOfAnotherKindIsNotTakenForAFile) {
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    const HANDLE null = Create(u"/dev/null", CREATE_ALWAYS);
    for (const HANDLE handle : {event, HANDLE{nullptr}, INVALID_HANDLE_VALUE}) {
        EXPECT_FALSE(WriteFile(handle, "x", 1, nullptr, nullptr));
    }
    EXPECT_FALSE(SetEvent(null));
    EXPECT_EQ(WaitForSingleObject(null, 0), WAIT_FAILED);
    EXPECT_FALSE(ReleaseMutex(null));
    EXPECT_FALSE(CloseHandle(INVALID_HANDLE_VALUE));
    EXPECT_TRUE(CloseHandle(null));
    EXPECT_TRUE(CloseHandle(event));
}

struct DesktopCase {
    const char* what;
    const char* settings; // of user-dirs.dirs; null for none
    const char* folder;   // below the home; null when there is none to be found
};

void PrintTo(const DesktopCase& one, std::ostream* out) {
    *out << one.what;
}

class Desktop : public testing::TestWithParam<DesktopCase> {};

TEST_P(Desktop, IsWhereTheUsersSettingsSay) {
    const ScratchFolder scratch;
    const fs::path home = scratch / "home";
    for (const char* folder :
         {"home/Desktop", "home/Schreibtisch", "home/桌面", "home/a \"b\" c"}) {
        fs::create_directories(scratch / folder);
    }
    fs::create_directory(scratch / "config");
    if (GetParam().settings != nullptr) {
        std::ofstream(scratch / "config/user-dirs.dirs") << GetParam().settings;
    }
    const EnvironmentSetting homeSetting("HOME", home.string() + "/");
    const EnvironmentSetting configSetting("XDG_CONFIG_HOME", (scratch / "config").string());

    PWSTR path = nullptr;
    const HRESULT result = SHGetKnownFolderPath(FOLDERID_Desktop, 0, nullptr, &path);
    ASSERT_EQ(result, S_OK);
    const std::string folder = GetParam().folder;
    std::u16string expected = (folder.empty() ? home : home / folder).u16string();
    std::replace(expected.begin(), expected.end(), u'/', u'\\');
    EXPECT_EQ(fs::path(std::u16string(path)), fs::path(expected));
    CoTaskMemFree(path);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, Desktop,
    testing::Values(
        DesktopCase{"None", nullptr, "Desktop"},
        DesktopCase{"BelowHome",
                    "XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\nXDG_MUSIC_DIR=\"$HOME/x\"\n",
                    "Schreibtisch"},
        DesktopCase{"NonLatin", "# x\nXDG_DESKTOP_DIR=\"$HOME/桌面/\"", "桌面"},
        DesktopCase{"Blanks", " XDG_DESKTOP_DIR = \"$HOME/Schreibtisch\" # x\n", "Schreibtisch"},
        DesktopCase{"Escapes", "XDG_DESKTOP_DIR=\"$HOME/a \\\"b\\\" c\"\n", "a \"b\" c"},
        DesktopCase{"LastCounts",
                    "XDG_DESKTOP_DIR=\"$HOME/none\"\nXDG_DESKTOP_DIR=\"$HOME/桌面\"\n", "桌面"},
        DesktopCase{"NotThere", "XDG_DESKTOP_DIR=\"$HOME/none\"\n", ""},
        DesktopCase{"AnotherFolder", "XDG_DESKTOP_DIRS=\"$HOME/桌面\"\n", "Desktop"},
        DesktopCase{"CommentedOut", "#XDG_DESKTOP_DIR=\"$HOME/桌面\"\n", "Desktop"},
        DesktopCase{"Relative", "XDG_DESKTOP_DIR=\"桌面\"\n", "Desktop"},
        DesktopCase{"AnotherVariable", "XDG_DESKTOP_DIR=\"$HOMES/桌面\"\n", "Desktop"},
        DesktopCase{"QuoteLeftOpen", "XDG_DESKTOP_DIR=\"$HOME/桌面\n", "Desktop"},
        DesktopCase{"Unquoted", "XDG_DESKTOP_DIR=$HOME/桌面\n", "Desktop"},
        DesktopCase{"CutInTheMiddle", "XDG_DESKTOP_DIR", "Desktop"}),
    [](const auto& one) { return one.param.what; });

TEST(Files, TheHomeItselfCanBeTheDesktop) {
    const ScratchFolder home;
    std::ofstream(home / "user-dirs.dirs") << "XDG_DESKTOP_DIR=\"$HOME/\"\n";
    const EnvironmentSetting homeSetting("HOME", home.Path().string());
    const EnvironmentSetting configSetting("XDG_CONFIG_HOME", home.Path().string());
    PWSTR path = nullptr;
    ASSERT_EQ(SHGetKnownFolderPath(FOLDERID_Desktop, 0, nullptr, &path), S_OK);
    EXPECT_NE(path[std::u16string_view(path).size() - 1], u'\\');
    ASSERT_TRUE(CreateDirectoryW((std::u16string(path) + u"\\x").c_str(), nullptr));
    EXPECT_TRUE(fs::is_directory(home / "x")) << "what is given out must lead back";
    CoTaskMemFree(path);
}

TEST(Files, TheProgramsFolderIsWhatStandsBeforeTheLastBackslash) {
    WCHAR path[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameW(nullptr, path, std::size(path));
    std::u16string text(path);
    ASSERT_EQ(length, text.size());
    const fs::path program = fs::read_symlink("/proc/self/exe");
    EXPECT_EQ(fs::path(text.substr(text.rfind(u'\\') + 1)), program.filename());

    WCHAR small[4] = {1, 1, 1, 1};
    EXPECT_EQ(GetModuleFileNameW(nullptr, small, 3), 3U);
    EXPECT_EQ(std::u16string(small), text.substr(0, 2));
    EXPECT_EQ(small[3], 1) << "overrun";
}

TEST(Files, AnEnvironmentValueNeverOverrunsItsBuffer) {
    const EnvironmentSetting setting("KELVARIN_TEST_VALUE", "añ🎤");
    for (const DWORD room : {0U, 4U, 5U, 6U}) { // four units and the terminator
        WCHAR value[] = {1, 1, 1, 1, 1, 1, 1, 1, 0};
        const bool fits = room >= 5;
        EXPECT_EQ(GetEnvironmentVariableW(TEXT("KELVARIN_TEST_VALUE"), value, room),
                  fits ? 4U : 5U);
        EXPECT_EQ(value[fits ? 5 : 0], 1);
        EXPECT_EQ(std::u16string(value).substr(0, 4) == u"añ🎤", fits);
    }
    EXPECT_EQ(GetEnvironmentVariableW(TEXT("KELVARIN_TEST_NONE"), nullptr, 0), 0U);
    EXPECT_EQ(GetLastError(), ERROR_ENVVAR_NOT_FOUND);
}

} // namespace

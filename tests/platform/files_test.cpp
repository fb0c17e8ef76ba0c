#include "service/scratch_folder.h"
#include "support/environment_setting.h"

#include <windows.h>
#include <gtest/gtest.h>
#include <shlobj.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
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

// ---- What others do to an open file -------------------------------------------------------------

// A file that is open for a transcript, as it were.
class OpenFile : public testing::Test {
protected:
    OpenFile() { Write("ours 1\n"); }
    ~OpenFile() override { CloseHandle(file); }

    bool Write(const std::string& text) {
        written = 7;
        return WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) !=
               FALSE;
    }

    ScratchFolder scratch;
    const fs::path path = scratch / "log.txt";
    HANDLE file = Create(path.u16string(), CREATE_NEW);
    DWORD written = 0;
};

TEST_F(OpenFile, IsWrittenBehindWhatAnEditorSavedIntoIt) {
    std::ofstream(path, std::ios::app) << "a note of the user's\n";
    EXPECT_TRUE(Write("ours 2\n"));
    EXPECT_EQ(Content(path), "ours 1\na note of the user's\nours 2\n");
    std::ofstream(path) << "short";
    EXPECT_TRUE(Write(" and on"));
    EXPECT_EQ(Content(path), "short and on") << "no gap of zero bytes";
    LARGE_INTEGER size;
    EXPECT_TRUE(GetFileSizeEx(file, &size));
    EXPECT_EQ(size.QuadPart, 12);
}

TEST_F(OpenFile, RefusesToBeWrittenWhenItIsNoLongerUnderItsName) {
    const auto refuses = [&] {
        SetLastError(ERROR_SUCCESS);
        return !Write("lost") && GetLastError() == ERROR_FILE_INVALID && written == 0;
    };
    const fs::path moved = scratch / "log.txt~";
    fs::rename(path, moved);
    EXPECT_TRUE(refuses());
    std::ofstream(path) << "an editor's copy\n";
    EXPECT_TRUE(refuses());
    fs::remove(path);
    fs::create_directory(path);
    EXPECT_TRUE(refuses());
    fs::remove(path);
    fs::rename(moved, path);
    EXPECT_TRUE(Write("ours 2\n")) << "it is back";
    EXPECT_EQ(Content(path), "ours 1\nours 2\n");
}

TEST_F(OpenFile, CanBeOpenedOrMadeAnewByOneCall) {
    const auto reopen = [&](DWORD tells) {
        CloseHandle(file);
        SetLastError(ERROR_INVALID_NAME);
        file = CreateFileW(path.u16string().c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr,
                           OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        EXPECT_EQ(GetLastError(), tells);
        return Write("ours 2\n");
    };
    EXPECT_TRUE(reopen(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(Content(path), "ours 1\nours 2\n");
    fs::remove(path);
    EXPECT_TRUE(reopen(ERROR_SUCCESS));
    EXPECT_EQ(Content(path), "ours 2\n");
    fs::remove(path);
    fs::create_directory(path);
    EXPECT_FALSE(reopen(ERROR_ACCESS_DENIED));
    EXPECT_EQ(file, INVALID_HANDLE_VALUE);
}

// Files of this process may not grow beyond so many bytes, for as long as it lives.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : signal_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &former_);
        const rlimit limit{bytes, former_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &former_);
        std::signal(SIGXFSZ, signal_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit former_{};
    void (*signal_)(int);
};

TEST_F(OpenFile, HoldsNoHalfTextWhenThereIsNoRoomForTheWhole) {
    {
        const FileSizeLimit limit(10);
        EXPECT_FALSE(Write("ours 2\n"));
        EXPECT_EQ(written, 0U);
        EXPECT_EQ(GetLastError(), ERROR_DISK_FULL);
        EXPECT_EQ(Content(path), "ours 1\n");
        EXPECT_TRUE(Write("o3\n")) << "a shorter one has room";
    }
    EXPECT_TRUE(Write("ours 4\n"));
    EXPECT_EQ(Content(path), "ours 1\no3\nours 4\n");
}

TEST(Files, AHandleOfAnotherKindIsNotTakenForAFile) {
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    const HANDLE null = Create(u"/dev/null", CREATE_ALWAYS);
    for (const HANDLE handle : {event, HANDLE{nullptr}, INVALID_HANDLE_VALUE}) {
        EXPECT_FALSE(WriteFile(handle, "x", 1, nullptr, nullptr));
        LARGE_INTEGER size;
        EXPECT_FALSE(GetFileSizeEx(handle, &size));
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

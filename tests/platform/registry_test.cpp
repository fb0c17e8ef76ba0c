#include "platform/forked_child.h"
#include "service/scratch_folder.h"
#include "support/environment_setting.h"

#include <windows.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace std::string_view_literals; // keep the zeros in a text
using Bytes = std::vector<BYTE>;

constexpr LPCWSTR kKeyName = TEXT("Software\\Kelvarin\\Config");
constexpr uid_t kNobody = 65534;

class Key {
public:
    Key() { result_ = Open(kKeyName, &key_); }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    ~Key() { RegCloseKey(key_); }

    static LSTATUS Open(LPCWSTR name, HKEY* key) {
        return RegCreateKeyExW(HKEY_CURRENT_USER, name, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key,
                               nullptr);
    }

    LSTATUS OpenResult() const { return result_; }
    HKEY Handle() const { return key_; }

    LSTATUS Set(LPCWSTR name, const Bytes& data, DWORD type = REG_SZ) {
        return RegSetValueExW(key_, name, 0, type, data.data(), static_cast<DWORD>(data.size()));
    }
    LSTATUS SetNumber(LPCWSTR name, DWORD number) {
        return RegSetValueExW(key_, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number),
                              sizeof number);
    }

    // Type and bytes; type 0 when it cannot be read.
    std::pair<DWORD, Bytes> Get(LPCWSTR name) {
        Bytes data(70'000);
        DWORD type = 0;
        auto size = static_cast<DWORD>(data.size());
        if (RegQueryValueExW(key_, name, nullptr, &type, data.data(), &size) != ERROR_SUCCESS) {
            return {};
        }
        data.resize(size);
        return {type, data};
    }
    int Number(LPCWSTR name) {
        int number = -1;
        DWORD size = sizeof number;
        RegQueryValueExW(key_, name, nullptr, nullptr, reinterpret_cast<BYTE*>(&number), &size);
        return number;
    }

private:
    HKEY key_ = nullptr;
    LSTATUS result_;
};

Bytes TextBytes(std::u16string_view text) {
    Bytes bytes;
    for (const char16_t unit : text) {
        bytes.push_back(static_cast<BYTE>(unit & 0xFF));
        bytes.push_back(static_cast<BYTE>(unit >> 8));
    }
    return bytes;
}

class Registry : public testing::Test {
protected:
    mode_t Mode(const fs::path& path) const {
        struct stat facts {};
        EXPECT_EQ(stat(path.c_str(), &facts), 0) << path;
        return facts.st_mode & 0777;
    }

    const ScratchFolder folder_;
    const EnvironmentSetting config_{"XDG_CONFIG_HOME", folder_.Path().string()};
    const fs::path file_ = folder_ / "kelvarin" / "config.db";
};

TEST_F(Registry, AValueKeepsItsTypeAndEveryByteOverAClose) {
    const std::vector<std::pair<DWORD, Bytes>> values = {
        {REG_DWORD, {0xFF, 0xFF, 0xFF, 0xFF}},
        {REG_DWORD, {0, 0, 0, 0}},
        {REG_DWORD, {1}},
        {REG_SZ, {}},
        {REG_SZ, TextBytes(u"\0"sv)},
        {REG_SZ, TextBytes(u"quote \" ' = ; # [x]\r\n\t\\ %20 \0"sv)},
        {REG_SZ, TextBytes(u"麦克风 (Ünïcode) 🎤\0"sv)},
        {REG_SZ, TextBytes(u"\xD800 lone \xDC00\0 behind a zero"sv)},
        {REG_SZ, TextBytes(std::u16string(2048, u'长'))},
        {REG_SZ, Bytes(65'537, 0x80)},
        {3, {0, 1, 2}},
    };
    const auto name = [](std::size_t i) {
        return u"value " + std::u16string(1, static_cast<char16_t>(u'α' + i));
    };
    {
        Key key;
        ASSERT_EQ(key.OpenResult(), ERROR_SUCCESS);
        for (std::size_t i = 0; i < values.size(); ++i) {
            ASSERT_EQ(key.Set(name(i).c_str(), {9, 9}), ERROR_SUCCESS) << "to be overwritten";
            ASSERT_EQ(key.Set(name(i).c_str(), values[i].second, values[i].first), ERROR_SUCCESS);
        }
    }
    Key again;
    for (std::size_t i = 0; i < values.size(); ++i) {
        EXPECT_EQ(again.Get(name(i).c_str()), values[i]) << i;
    }
    EXPECT_TRUE(fs::exists(file_));
}

TEST_F(Registry, ABufferIsNeverOverrunAndTheNeededSizeIsTold) {
    Key key;
    key.Set(TEXT("text"), TextBytes(u"abc"));
    struct Case {
        DWORD room;
        bool buffer;
        LSTATUS result;
        DWORD size;
    };
    for (const Case& each : {Case{6, true, ERROR_SUCCESS, 6}, Case{7, true, ERROR_SUCCESS, 6},
                             Case{5, true, ERROR_MORE_DATA, 6}, Case{0, true, ERROR_MORE_DATA, 6},
                             Case{0, false, ERROR_SUCCESS, 6}}) {
        BYTE buffer[8];
        std::fill(std::begin(buffer), std::end(buffer), BYTE{0xEE});
        DWORD size = each.room;
        EXPECT_EQ(RegQueryValueExW(key.Handle(), TEXT("TEXT"), nullptr, nullptr,
                                   each.buffer ? buffer : nullptr, &size),
                  each.result)
            << each.room;
        EXPECT_EQ(size, each.size);
        const std::size_t filled = each.buffer && each.result == ERROR_SUCCESS ? 6 : 0;
        EXPECT_EQ(std::count(std::begin(buffer) + filled, std::end(buffer), BYTE{0xEE}),
                  static_cast<std::ptrdiff_t>(sizeof buffer - filled));
    }
    EXPECT_EQ(RegQueryValueExW(key.Handle(), TEXT("none"), nullptr, nullptr, nullptr, nullptr),
              ERROR_FILE_NOT_FOUND);
    BYTE byte = 0;
    EXPECT_EQ(RegQueryValueExW(key.Handle(), TEXT("text"), nullptr, nullptr, &byte, nullptr),
              ERROR_INVALID_PARAMETER);
}

TEST_F(Registry, HandlesThatAreNullOrClosedAreRefused) {
    HKEY closed = nullptr;
    ASSERT_EQ(Key::Open(kKeyName, &closed), ERROR_SUCCESS);
    ASSERT_EQ(RegCloseKey(closed), ERROR_SUCCESS);
    const Key another; // must not come to life under the closed one's handle
    for (HKEY key : {HKEY{nullptr}, closed, HKEY_CURRENT_USER}) {
        DWORD size = 0;
        EXPECT_EQ(RegSetValueExW(key, TEXT("x"), 0, REG_SZ, nullptr, 0), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RegQueryValueExW(key, TEXT("x"), nullptr, nullptr, nullptr, &size),
                  ERROR_INVALID_HANDLE);
        EXPECT_EQ(RegCloseKey(key), ERROR_INVALID_HANDLE);
    }
}

TEST_F(Registry, AKeysNameNeverLeadsOutOfTheFolderOfSettings) {
    for (LPCWSTR name : {TEXT(""), TEXT("Software"), TEXT("Software\\"), TEXT("Software\\\\Config"),
                         TEXT("Software\\..\\Config"), TEXT("Software\\."), TEXT("\\Software\\x"),
                         TEXT("Software\\a/../../b")}) {
        HKEY key = HKEY_CURRENT_USER;
        EXPECT_NE(Key::Open(name, &key), ERROR_SUCCESS) << fs::path(name);
        EXPECT_EQ(key, nullptr);
    }
    EXPECT_TRUE(fs::is_empty(folder_.Path()));
}

TEST_F(Registry, TheAccessKeyIsForItsUsersEyesOnly) {
    Key key;
    key.Set(TEXT("access_key"), TextBytes(u"secret"));
    EXPECT_EQ(Mode(file_.parent_path()), mode_t{0700});
    for (const char* side : {"", "-wal", "-shm"}) {
        EXPECT_EQ(Mode(file_.string() + side), mode_t{0600}) << side;
    }
    fs::permissions(file_, fs::perms(0644)); // as a careless copy would have it
    const Key again;
    EXPECT_EQ(Mode(file_), mode_t{0600});
}

TEST_F(Registry, AKillInAStormOfWritesLosesNothingThatWasWritten) {
    int begin = 0;
    for (int round = 0; round < 8; ++round) {
        ForkedChild writer([begin](int told) {
            Key key;
            for (int i = begin;; ++i) {
                if (key.Set(TEXT("access_key"), Bytes(4096, static_cast<BYTE>(i))) != 0 ||
                    key.SetNumber(TEXT("window_height"), static_cast<DWORD>(i)) != 0) {
                    return EXIT_FAILURE;
                }
                ForkedChild::Tell(told, i);
            }
        });
        int last = -1;
        for (int i = 0; i < 50 + 37 * round; ++i) {
            last = writer.Told();
        }
        ASSERT_GE(last, begin);
        writer.Kill();

        Key key;
        ASSERT_EQ(key.OpenResult(), ERROR_SUCCESS);
        const int height = key.Number(TEXT("window_height"));
        EXPECT_GE(height, last);
        const Bytes text = key.Get(TEXT("access_key")).second;
        ASSERT_EQ(text.size(), 4096U);
        EXPECT_EQ(std::count(text.begin(), text.end(), text.front()), 4096) << "torn";
        const auto ahead = static_cast<BYTE>(text.front() - static_cast<BYTE>(height));
        EXPECT_LE(ahead, 1) << "the text is written before the number";
        EXPECT_FALSE(fs::exists(file_.string() + ".damaged"));
        begin = height + 1;
    }
}

TEST_F(Registry, TwoProcessesThatWriteAtOnceLoseNeithersValues) {
    constexpr int kWrites = 200;
    const auto write = [](char16_t who) {
        return [who](int /*told*/) {
            Key key;
            for (int i = 0; i < kWrites; ++i) {
                const std::u16string name =
                    who + std::u16string(1, static_cast<char16_t>(u'一' + i));
                if (key.SetNumber(name.c_str(), static_cast<DWORD>(i)) != ERROR_SUCCESS) {
                    return EXIT_FAILURE;
                }
            }
            return EXIT_SUCCESS;
        };
    };
    // Both find no file, and make it together.
    ForkedChild one(write(u'一'));
    ForkedChild other(write(u'二'));
    EXPECT_EQ(one.Wait(), EXIT_SUCCESS);
    EXPECT_EQ(other.Wait(), EXIT_SUCCESS);
    Key key;
    for (int i = 0; i < kWrites; ++i) {
        for (const char16_t who : {u'一', u'二'}) {
            const std::u16string name = who + std::u16string(1, static_cast<char16_t>(u'一' + i));
            EXPECT_EQ(key.Number(name.c_str()), i);
        }
    }
}

TEST_F(Registry, ADamagedFileIsPutAsideAndWhatIsWrittenThenIsKept) {
    const auto truncate = [this](std::uintmax_t size) { fs::resize_file(file_, size); };
    const auto overwrite = [this](std::uintmax_t from, const std::string& garbage) {
        std::fstream file(file_, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(from));
        file << garbage;
    };
    const std::vector<std::pair<const char*, std::function<void()>>> damages = {
        {"garbage", [&] { overwrite(0, "[General]\naccess_key=x\n"); }},
        {"all garbage", [&] { overwrite(0, std::string(fs::file_size(file_), '\xA5')); }},
        {"cut in the first page", [&] { truncate(700); }},
        {"cut in the header", [&] { truncate(50); }},
        {"cut behind the first page", [&] { truncate(4096); }},
        {"a page of garbage", [&] { overwrite(4096, std::string(4096, '\x5A')); }},
    };
    for (const auto& [name, damage] : damages) {
        {
            Key key;
            key.Set(TEXT("access_key"), Bytes(3000, 7));
            key.Set(TEXT("mic_device_name"), Bytes(3000, 8));
        }
        damage();
        {
            Key key;
            ASSERT_EQ(key.OpenResult(), ERROR_SUCCESS) << name;
            EXPECT_EQ(key.Get(TEXT("access_key")).first, 0U) << name;
            EXPECT_EQ(key.SetNumber(TEXT("lang_a"), 5), ERROR_SUCCESS) << name;
        }
        EXPECT_EQ(Mode(file_), mode_t{0600}) << name;
        EXPECT_EQ(Mode(file_.string() + ".damaged"), mode_t{0600}) << name;
        Key key;
        EXPECT_EQ(key.Number(TEXT("lang_a")), 5) << name;
        fs::remove(file_.string() + ".damaged");
    }
}

TEST_F(Registry, AnEmptyFileIsAnEmptyStore) {
    fs::create_directory(file_.parent_path());
    std::ofstream(file_) << "";
    Key key;
    EXPECT_EQ(key.SetNumber(TEXT("lang_a"), 5), ERROR_SUCCESS);
    EXPECT_EQ(key.Number(TEXT("lang_a")), 5);
    EXPECT_FALSE(fs::exists(file_.string() + ".damaged"));
}

TEST_F(Registry, WhereNoFileCanBeThereIsNoKey) {
    fs::create_directories(file_);
    const Key folderInPlace;
    EXPECT_NE(folderInPlace.OpenResult(), ERROR_SUCCESS);
    EXPECT_EQ(folderInPlace.Handle(), nullptr);

    fs::remove_all(file_.parent_path());
    std::ofstream(file_.parent_path()) << "";
    const Key fileOnTheWay;
    EXPECT_NE(fileOnTheWay.OpenResult(), ERROR_SUCCESS);
}

// As on a system that runs from a read-only medium.
TEST_F(Registry, AFileThatMayOnlyBeReadStillGivesItsValues) {
    struct Case {
        mode_t fileMode;
        mode_t folderMode;
    };
    for (const Case& each : {Case{0400, 0700}, Case{0400, 0500}, Case{0600, 0500}}) {
        fs::remove_all(file_.parent_path());
        {
            Key key;
            key.SetNumber(TEXT("lang_a"), 6);
        }
        for (const fs::path& path : {folder_.Path(), file_.parent_path(), file_}) {
            if (geteuid() == 0) {
                ASSERT_EQ(chown(path.c_str(), kNobody, kNobody), 0);
            }
        }
        chmod(file_.c_str(), each.fileMode);
        chmod(file_.parent_path().c_str(), each.folderMode);
        ForkedChild reader([](int told) {
            if (geteuid() == 0 && setuid(kNobody) != 0) { // root may write everything
                return EXIT_FAILURE;
            }
            Key key;
            ForkedChild::Tell(told, key.Number(TEXT("lang_a")));
            ForkedChild::Tell(told, key.SetNumber(TEXT("lang_a"), 7) == ERROR_SUCCESS);
            ForkedChild::Tell(told, key.Number(TEXT("lang_a")));
            return EXIT_SUCCESS;
        });
        EXPECT_EQ(reader.Told(), 6) << each.fileMode << " " << each.folderMode;
        EXPECT_EQ(reader.Told(), 0) << "a write that cannot be must not be called one";
        EXPECT_EQ(reader.Told(), 6);
        EXPECT_EQ(reader.Wait(), EXIT_SUCCESS);
        chmod(file_.parent_path().c_str(), 0700);
    }
}

} // namespace

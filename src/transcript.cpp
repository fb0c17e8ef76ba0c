#include "transcript.h"

#include <knownfolders.h>
#include <shlobj.h>

#include <array>
#include <string>
#include <utility>

namespace {

constexpr const WCHAR* kFolderName = TEXT("\\Kelvarin（记录）");
constexpr int kMostOfOneName = 1000; // files of one name, told apart by a number

WideString DesktopFolder() {
    CoTaskMemory<WCHAR> path;
    if (SUCCEEDED(SHGetKnownFolderPath(FOLDERID_Desktop, 0, nullptr, path.Receive()))) {
        return path.get();
    }
    std::array<WCHAR, MAX_PATH> text{};
    if (GetEnvironmentVariableW(TEXT("USERPROFILE"), text.data(), MAX_PATH) != 0) {
        return text.data() + WideString(TEXT("\\Desktop"));
    }
    GetModuleFileNameW(nullptr, text.data(), MAX_PATH);
    const WideString program = text.data();
    return program.substr(0, program.rfind(TEXT('\\')));
}

WideString FileStamp() {
    SYSTEMTIME now;
    GetLocalTime(&now);
    std::array<WCHAR, 32> text{};
    FormatWide(text.data(), text.size(), TEXT("%04d%02d%02d_%02d%02d%02d"), int{now.wYear},
               int{now.wMonth}, int{now.wDay}, int{now.wHour}, int{now.wMinute}, int{now.wSecond});
    return text.data();
}

WideString NumberSuffix(int number) {
    std::array<WCHAR, 16> text{};
    FormatWide(text.data(), text.size(), TEXT("_%d"), number);
    return text.data();
}

struct NewFile {
    FileHandle file;
    WideString path;
};

// Makes a file that was not there before: two starts within a second would take the same name.
NewFile CreateNewFile(const WideString& name) {
    for (int number = 1; number <= kMostOfOneName; ++number) {
        const WideString path =
            name + (number == 1 ? WideString() : NumberSuffix(number)) + TEXT(".txt");
        FileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                    CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (file || GetLastError() != ERROR_FILE_EXISTS) {
            return {std::move(file), path};
        }
    }
    return {};
}

bool WriteBytes(HANDLE file, const std::string& bytes) {
    DWORD written = 0;
    return WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) !=
           FALSE;
}

} // namespace

void Transcript::Open(const WideString& langA, const WideString& langB) {
    const std::lock_guard lock(mutex_);
    CloseFile();
    const WideString folder = DesktopFolder() + kFolderName;
    CreateDirectoryW(folder.c_str(), nullptr);
    NewFile made = CreateNewFile(folder + TEXT("\\translation_") + langA + TEXT("_") + langB +
                                 TEXT("_") + FileStamp());
    if (!made.file) {
        return;
    }
    file_ = std::move(made.file);
    path_ = made.path;
    head_ =
        "\xEF\xBB\xBF" + // tells editors that the text is UTF-8
        WideToUtf8(TEXT("# Translation Log  ") + langA + TEXT(" -> ") + langB + TEXT("\r\n\r\n"));
    Write("");
}

void Transcript::Append(const WideString& original, const WideString& translated) {
    const std::lock_guard lock(mutex_);
    if (path_.empty()) {
        return;
    }
    SYSTEMTIME now;
    GetLocalTime(&now);
    std::array<WCHAR, 32> time{};
    FormatWide(time.data(), time.size(), TEXT("[%02d:%02d:%02d]\r\n"), int{now.wHour},
               int{now.wMinute}, int{now.wSecond});
    const std::string entry =
        WideToUtf8(time.data() + original + TEXT("\r\n") + translated + TEXT("\r\n\r\n"));
    if (!file_ || (!Write(entry) && GetLastError() == ERROR_FILE_INVALID)) {
        Reopen();
        Write(entry);
    }
}

void Transcript::Close() {
    const std::lock_guard lock(mutex_);
    CloseFile();
}

// An empty file gets its head first: a new one, and one that there was no room for, or that was
// emptied by someone.
bool Transcript::Write(const std::string& entry) const {
    LARGE_INTEGER size{};
    if (GetFileSizeEx(file_.get(), &size) != FALSE && size.QuadPart == 0 &&
        !WriteBytes(file_.get(), head_)) {
        return false;
    }
    return entry.empty() || WriteBytes(file_.get(), entry);
}

// The open file is not the one under its name any more: it was deleted or moved away, or saved anew
// by an editor, whose copy it goes on in.
void Transcript::Reopen() {
    file_.Reset(); // before the file is opened again: nobody else could write it
    CreateDirectoryW(path_.substr(0, path_.rfind(TEXT('\\'))).c_str(), nullptr);
    file_.Reset(CreateFileW(path_.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr));
}

void Transcript::CloseFile() {
    file_.Reset();
    path_.clear();
}

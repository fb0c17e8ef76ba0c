// The transcript: a text file of every final caption, in a folder on the desktop. Its failures are
// silent; without a file the captions are on the screen alone.
#include "overlay_window.h"

#include "com_ref.h"

#include <knownfolders.h>
#include <shlobj.h>

#include <array>
#include <string>

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

// Makes a file that was not there before: two starts within a second would take the same name.
HANDLE CreateNewFile(const WideString& name) {
    for (int number = 1; number <= kMostOfOneName; ++number) {
        const WideString path =
            name + (number == 1 ? WideString() : NumberSuffix(number)) + TEXT(".txt");
        HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file != INVALID_HANDLE_VALUE || GetLastError() != ERROR_FILE_EXISTS) {
            return file;
        }
    }
    return INVALID_HANDLE_VALUE;
}

void WriteBytes(HANDLE file, const std::string& bytes) {
    DWORD written = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

} // namespace

void OverlayWindow::OpenTranscript(const WideString& langA, const WideString& langB) {
    CloseTranscript();
    const WideString folder = DesktopFolder() + kFolderName;
    CreateDirectoryW(folder.c_str(), nullptr);
    logFile_ = CreateNewFile(folder + TEXT("\\translation_") + langA + TEXT("_") + langB +
                             TEXT("_") + FileStamp());
    if (logFile_ == INVALID_HANDLE_VALUE) {
        return;
    }
    WriteBytes(logFile_, "\xEF\xBB\xBF"); // tells editors that the text is UTF-8
    WriteBytes(logFile_, WideToUtf8(TEXT("# Translation Log  ") + langA + TEXT(" -> ") + langB +
                                    TEXT("\r\n\r\n")));
}

// In one call without a buffer of the program's own: what was written survives the program.
void OverlayWindow::AppendTranscript(const WideString& original, const WideString& translated) {
    if (logFile_ == INVALID_HANDLE_VALUE) {
        return;
    }
    SYSTEMTIME now;
    GetLocalTime(&now);
    std::array<WCHAR, 32> time{};
    FormatWide(time.data(), time.size(), TEXT("[%02d:%02d:%02d]\r\n"), int{now.wHour},
               int{now.wMinute}, int{now.wSecond});
    WriteBytes(logFile_,
               WideToUtf8(time.data() + original + TEXT("\r\n") + translated + TEXT("\r\n\r\n")));
}

void OverlayWindow::CloseTranscript() {
    if (logFile_ != INVALID_HANDLE_VALUE) {
        CloseHandle(logFile_);
        logFile_ = INVALID_HANDLE_VALUE;
    }
}

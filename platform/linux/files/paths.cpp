#include "files/paths.h"

#include "process/last_error.h"
#include "text/utf.h"

#include <algorithm>
#include <filesystem>

std::string files::ToSystemPath(LPCWSTR path) {
    std::string utf8 = text::ToUtf8(path);
    std::replace(utf8.begin(), utf8.end(), '\\', '/');
    return utf8;
}

std::u16string files::ToProgramPath(std::string_view path) {
    std::u16string wide = text::ToWide(path);
    std::replace(wide.begin(), wide.end(), u'/', u'\\');
    return wide;
}

DWORD GetModuleFileNameW(HMODULE module, LPWSTR path, DWORD room) {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (module != nullptr || path == nullptr || room == 0 || error) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const std::u16string wide = files::ToProgramPath(program.native());
    const std::size_t length = wide.copy(path, room - 1);
    path[length] = 0;
    if (length < wide.size()) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return room;
    }
    return static_cast<DWORD>(length);
}

#include "process/last_error.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace {

thread_local DWORD lastError = ERROR_SUCCESS;

struct Translation {
    int error;
    DWORD windows;
};

constexpr Translation kTranslations[] = {
    {EEXIST, ERROR_FILE_EXISTS},     {ENOENT, ERROR_PATH_NOT_FOUND},
    {ENOTDIR, ERROR_PATH_NOT_FOUND}, {ENAMETOOLONG, ERROR_INVALID_NAME},
    {EACCES, ERROR_ACCESS_DENIED},   {EPERM, ERROR_ACCESS_DENIED},
    {EROFS, ERROR_ACCESS_DENIED},    {EISDIR, ERROR_ACCESS_DENIED},
    {ENOSPC, ERROR_DISK_FULL},       {EDQUOT, ERROR_DISK_FULL},
    {EFBIG, ERROR_DISK_FULL},        {EINVAL, ERROR_INVALID_NAME},
};

} // namespace

DWORD GetLastError() {
    return lastError;
}

void SetLastError(DWORD error) {
    lastError = error;
}

DWORD process::ErrorOfErrno(int error) {
    const auto* const found =
        std::find_if(std::begin(kTranslations), std::end(kTranslations),
                     [error](const Translation& entry) { return entry.error == error; });
    return found == std::end(kTranslations) ? DWORD{ERROR_WRITE_FAULT} : found->windows;
}

BOOL process::Fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

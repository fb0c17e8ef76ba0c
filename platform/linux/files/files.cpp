// Writing files and making folders. Without a buffer of its own: what a call has taken, the system
// has. On Windows an open file is its writer's alone; here others may do with it what they like,
// and nothing of theirs or ours may be lost by that.
#include "files/paths.h"
#include "process/descriptor.h"
#include "process/handle.h"
#include "process/last_error.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace files {
namespace {

// Used by one thread at a time.
class File final : public process::HandleObject {
public:
    static constexpr process::HandleKind kKind = process::HandleKind::File;

    File(process::Descriptor descriptor, std::string path)
        : HandleObject(kKind), descriptor_(std::move(descriptor)), path_(std::move(path)) {}

    // False when it has been renamed or deleted, or another one has taken its place. Where that
    // cannot be told, it is taken for the same.
    bool StandsUnderItsName() const {
        struct stat here {};
        struct stat there {};
        if (stat(path_.c_str(), &there) != 0) {
            return errno != ENOENT && errno != ENOTDIR;
        }
        return fstat(descriptor_.Number(), &here) != 0 ||
               (here.st_dev == there.st_dev && here.st_ino == there.st_ino);
    }

    // Negative when it cannot be told.
    off_t Size() const {
        struct stat status {};
        return fstat(descriptor_.Number(), &status) == 0 ? status.st_size : -1;
    }

    // Returns how many bytes were written; less than asked for only on a failure, with its errno.
    DWORD Write(const char* data, DWORD bytes) {
        const off_t before = Size();
        DWORD written = 0;
        while (written < bytes) {
            const ssize_t count = write(descriptor_.Number(), data + written, bytes - written);
            if (count < 0 && errno == EINTR) {
                continue;
            }
            if (count <= 0) {
                const int reason = errno;
                written = TakeBack(before, written);
                errno = reason;
                break;
            }
            written += static_cast<DWORD>(count);
        }
        return written;
    }

private:
    // Takes the beginning of a text out again whose rest has found no room, unless someone else has
    // written after it. Returns what is left of it.
    DWORD TakeBack(off_t before, DWORD written) {
        const bool ours = before >= 0 && written > 0 && Size() == before + off_t{written};
        return ours && ftruncate(descriptor_.Number(), before) == 0 ? 0 : written;
    }

    const process::Descriptor descriptor_;
    const std::string path_;
};

process::Descriptor Open(const std::string& path, int creation) {
    return process::Descriptor(
        open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | creation, 0666));
}

// Opens the file or makes it, and notes in the last error which of the two it was.
process::Descriptor OpenOrMake(const std::string& path) {
    SetLastError(ERROR_SUCCESS);
    process::Descriptor made = Open(path, O_CREAT | O_EXCL);
    if (made || errno != EEXIST) {
        return made;
    }
    SetLastError(ERROR_ALREADY_EXISTS);
    return Open(path, 0);
}

// Nothing, with its errno, where it cannot be opened.
process::Descriptor OpenFor(const std::string& path, DWORD disposition) {
    switch (disposition) {
    case CREATE_NEW:
        return Open(path, O_CREAT | O_EXCL);
    case CREATE_ALWAYS:
        return Open(path, O_CREAT | O_TRUNC);
    default:
        return OpenOrMake(path);
    }
}

} // namespace
} // namespace files

HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD /*shareMode*/,
                   SECURITY_ATTRIBUTES* /*security*/, DWORD disposition, DWORD /*attributes*/,
                   HANDLE /*templateFile*/) {
    const bool known =
        (access == GENERIC_WRITE || access == FILE_APPEND_DATA) &&
        (disposition == CREATE_NEW || disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS);
    if (path == nullptr || !known) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    std::string systemPath = files::ToSystemPath(path);
    process::Descriptor descriptor = files::OpenFor(systemPath, disposition);
    if (!descriptor) {
        SetLastError(process::ErrorOfErrno(errno));
        return INVALID_HANDLE_VALUE;
    }
    return process::MakeHandle(
        std::make_unique<files::File>(std::move(descriptor), std::move(systemPath)));
}

BOOL WriteFile(HANDLE file, LPCVOID data, DWORD bytes, LPDWORD written,
               OVERLAPPED* /*overlapped*/) {
    DWORD ignored = 0;
    DWORD& count = written != nullptr ? *written : ignored;
    count = 0;
    auto* const object = process::ObjectOf<files::File>(file);
    if (object == nullptr) {
        return process::Fail(ERROR_INVALID_HANDLE);
    }
    if (!object->StandsUnderItsName()) {
        return process::Fail(ERROR_FILE_INVALID);
    }
    count = object->Write(static_cast<const char*>(data), bytes);
    return count == bytes ? TRUE : process::Fail(process::ErrorOfErrno(errno));
}

BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size) {
    const auto* const object = process::ObjectOf<files::File>(file);
    if (object == nullptr) {
        return process::Fail(ERROR_INVALID_HANDLE);
    }
    size->QuadPart = object->Size();
    return size->QuadPart >= 0 ? TRUE : process::Fail(ERROR_WRITE_FAULT);
}

BOOL CreateDirectoryW(LPCWSTR path, SECURITY_ATTRIBUTES* /*security*/) {
    if (path == nullptr) {
        return process::Fail(ERROR_PATH_NOT_FOUND);
    }
    if (mkdir(files::ToSystemPath(path).c_str(), 0777) == 0) {
        return TRUE;
    }
    return process::Fail(errno == EEXIST ? DWORD{ERROR_ALREADY_EXISTS}
                                         : process::ErrorOfErrno(errno));
}

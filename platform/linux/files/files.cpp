// Writing files and making folders. Without a buffer of its own: what a call has taken, the system
// has.
#include "files/paths.h"
#include "process/descriptor.h"
#include "process/handle.h"
#include "process/last_error.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace files {
namespace {

// Used by one thread at a time.
class File final : public process::HandleObject {
public:
    static constexpr process::HandleKind kKind = process::HandleKind::File;

    explicit File(process::Descriptor descriptor)
        : HandleObject(kKind), descriptor_(std::move(descriptor)) {}

    // Returns how many bytes were written; less than asked for only on a failure, with its errno.
    DWORD Write(const char* data, DWORD bytes) {
        DWORD written = 0;
        while (written < bytes) {
            const ssize_t count = write(descriptor_.Number(), data + written, bytes - written);
            if (count < 0 && errno == EINTR) {
                continue;
            }
            if (count <= 0) {
                break;
            }
            written += static_cast<DWORD>(count);
        }
        return written;
    }

private:
    const process::Descriptor descriptor_;
};

// Zero for a disposition that is not known.
int CreationFlags(DWORD disposition) {
    switch (disposition) {
    case CREATE_NEW:
        return O_CREAT | O_EXCL;
    case CREATE_ALWAYS:
        return O_CREAT | O_TRUNC;
    default:
        return 0;
    }
}

} // namespace
} // namespace files

HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD /*shareMode*/,
                   SECURITY_ATTRIBUTES* /*security*/, DWORD disposition, DWORD /*attributes*/,
                   HANDLE /*templateFile*/) {
    const int creation = files::CreationFlags(disposition);
    if (path == nullptr || access != GENERIC_WRITE || creation == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    process::Descriptor descriptor(
        open(files::ToSystemPath(path).c_str(), O_WRONLY | O_CLOEXEC | creation, 0666));
    if (!descriptor) {
        SetLastError(process::ErrorOfErrno(errno));
        return INVALID_HANDLE_VALUE;
    }
    return process::MakeHandle(std::make_unique<files::File>(std::move(descriptor)));
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
    count = object->Write(static_cast<const char*>(data), bytes);
    return count == bytes ? TRUE : process::Fail(process::ErrorOfErrno(errno));
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

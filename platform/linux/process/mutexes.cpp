// Named mutexes: a locked file in the user's runtime folder for each name. The kernel drops the
// lock with the last descriptor of its opening, however the process ends, so none is ever left
// behind.
#include "process/descriptor.h"
#include "process/handle.h"
#include "process/last_error.h"
#include "process/runtime_folder.h"
#include "text/utf.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

namespace process {
namespace {

// Used by the thread that made it, as the program does.
class Mutex final : public HandleObject {
public:
    static constexpr HandleKind kKind = HandleKind::Mutex;

    Mutex(Descriptor lock, bool owned)
        : HandleObject(kKind), lock_(std::move(lock)), owned_(owned) {}

    // False when it is not owned.
    bool Release() { return std::exchange(owned_, false); }

private:
    const Descriptor lock_; // holds the name
    bool owned_;
};

// Empty for a name that is no file's name.
std::string LockPath(LPCWSTR name) {
    const std::string folder = RuntimeFolder();
    const std::string file = text::ToUtf8(name);
    if (folder.empty() || file.empty() || file.find_first_of("/\\") != std::string::npos) {
        return {};
    }
    return folder + "/" + file + ".lock";
}

// The file stays when the lock goes: removing it could take a lock file away from under a process
// that has just opened it, and then two would hold the name.
Descriptor OpenLock(const std::string& path) {
    Descriptor lock(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (lock) {
        // The sticky bit keeps those away who clear runtime folders of what is long unused.
        fchmod(lock.Number(), S_ISVTX | 0600);
    }
    return lock;
}

} // namespace
} // namespace process

HANDLE CreateMutexW(SECURITY_ATTRIBUTES* /*security*/, BOOL initiallyOwned, LPCWSTR name) {
    if (name == nullptr || initiallyOwned == FALSE) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    const std::string path = process::LockPath(name);
    if (path.empty()) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return nullptr;
    }
    process::Descriptor lock = process::OpenLock(path);
    if (!lock) {
        SetLastError(process::ErrorOfErrno(errno));
        return nullptr;
    }
    const bool first = flock(lock.Number(), LOCK_EX | LOCK_NB) == 0;
    if (!first && errno != EWOULDBLOCK) {
        SetLastError(process::ErrorOfErrno(errno));
        return nullptr;
    }
    SetLastError(first ? DWORD{ERROR_SUCCESS} : ERROR_ALREADY_EXISTS);
    return process::MakeHandle(std::make_unique<process::Mutex>(std::move(lock), first));
}

BOOL ReleaseMutex(HANDLE mutex) {
    auto* const object = process::ObjectOf<process::Mutex>(mutex);
    if (object == nullptr) {
        return process::Fail(ERROR_INVALID_HANDLE);
    }
    return object->Release() ? TRUE : process::Fail(ERROR_NOT_OWNER);
}

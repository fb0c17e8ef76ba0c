// The streams that the program was started with.
#include <windows.h>
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace {

bool IsNullDevice(const struct stat& facts) {
    return S_ISCHR(facts.st_mode) && facts.st_rdev == makedev(1, 3);
}

} // namespace

BOOL AttachConsole(DWORD processId) {
    struct stat facts {};
    if (processId != ATTACH_PARENT_PROCESS || fstat(STDERR_FILENO, &facts) != 0) {
        return FALSE;
    }
    return !IsNullDevice(facts) && !S_ISSOCK(facts.st_mode);
}

errno_t freopen_s(std::FILE** result, const char* name, const char* /*mode*/, std::FILE* stream) {
    if (result == nullptr) {
        return EINVAL;
    }
    *result = nullptr;
    if (name == nullptr || stream == nullptr || std::string_view(name) != "CONOUT$") {
        return EINVAL;
    }
    *result = stream;
    return 0;
}

int _fileno(std::FILE* stream) {
    return fileno(stream);
}

int _setmode(int descriptor, int /*mode*/) {
    return fcntl(descriptor, F_GETFD) == -1 ? -1 : _O_TEXT;
}

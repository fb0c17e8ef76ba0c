// The environment, which is UTF-8 here.
#include "process/last_error.h"
#include "text/utf.h"

#include <cstdlib>
#include <string>

DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR value, DWORD room) {
    const char* const found = name != nullptr ? std::getenv(text::ToUtf8(name).c_str()) : nullptr;
    if (found == nullptr) {
        SetLastError(ERROR_ENVVAR_NOT_FOUND);
        return 0;
    }
    const std::u16string wide = text::ToWide(found);
    const auto length = static_cast<DWORD>(wide.size());
    if (value == nullptr || room <= length) {
        return length + 1;
    }
    wide.copy(value, length);
    value[length] = 0;
    return length;
}

#include "process/handle.h"

BOOL CloseHandle(HANDLE object) {
    const std::unique_ptr<process::HandleObject> owner(process::ObjectOf(object));
    return owner != nullptr;
}

// GetLastError for failures of the system underneath.
#pragma once

#include <windows.h>

namespace process {

// The Windows number for an errno of a call that names or writes a file.
DWORD ErrorOfErrno(int error);

// Sets the calling thread's last error and says FALSE, to be returned.
BOOL Fail(DWORD error);

} // namespace process

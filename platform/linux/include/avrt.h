// Multimedia scheduling classes (room process/).
#pragma once

#include <windows.h>

// Raises the calling thread's scheduling for as long as the handle is not given back. Null when the
// system does not allow it.
HANDLE AvSetMmThreadCharacteristicsW(LPCWSTR taskName, LPDWORD taskIndex);
BOOL AvRevertMmThreadCharacteristics(HANDLE task);

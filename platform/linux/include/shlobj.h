// Where the user's folders are (room files/). Declarations only.
#pragma once

#include <objbase.h>
#include <knownfolders.h>

// Knows FOLDERID_Desktop, from the user's XDG settings. Fails where the folder is not there. The
// path has `\` between its parts and none at its end; CoTaskMemFree frees it.
HRESULT SHGetKnownFolderPath(REFKNOWNFOLDERID folder, DWORD flags, HANDLE token, PWSTR* path);

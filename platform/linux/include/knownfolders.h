// The ids of the user's folders. Declarations only.
#pragma once

#include <unknwn.h>

using KNOWNFOLDERID = GUID;
using REFKNOWNFOLDERID = const KNOWNFOLDERID&;

inline constexpr KNOWNFOLDERID FOLDERID_Desktop = {
    0xB4BFCC3A, 0xDB2C, 0x424C, {0xB0, 0x29, 0x7F, 0xE9, 0x9A, 0x87, 0xC6, 0x41}};

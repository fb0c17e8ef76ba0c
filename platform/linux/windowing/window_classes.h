// The classes that windows are made of.
#pragma once

#include "windowing/window.h"

namespace windowing {

// Upper and lower case are one. Null when there is none.
const WindowClass* FindClass(std::u16string_view name);

} // namespace windowing

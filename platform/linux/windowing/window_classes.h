// The classes that windows are made of.
#pragma once

#include "windowing/window.h"

#include <windows.h>

#include <string_view>
#include <vector>

namespace windowing {

// Upper and lower case are one. Null when there is none.
const WindowClass* FindClass(std::u16string_view name);

// The classes that the system brings with it, there before any other. Whichever room makes them
// defines this: the windows themselves know none of them.
std::vector<WNDCLASSEXW> SystemClasses();

} // namespace windowing

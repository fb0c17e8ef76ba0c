// Procedures that get a window's messages before its own does.
#pragma once

#include "windowing/window.h"

#include <commctrl.h>

namespace windowing {

struct Subclass {
    SUBCLASSPROC procedure = nullptr;
    UINT_PTR id = 0;
    DWORD_PTR reference = 0;
    bool removed = false; // calls in progress still have it
};

// The first of the window's subclasses, or its own procedure where there are none.
LRESULT CallFirst(Window& window, UINT message, WPARAM wParam, LPARAM lParam);

} // namespace windowing

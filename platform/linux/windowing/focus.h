// The active window, and the window that has the keyboard. Of the thread that has the windows
// alone.
#pragma once

#include "windowing/window.h"

namespace windowing {

// Tells the windows of it; the system is not asked. Only what takes the activation at all.
void Activate(HWND topLevel);
// The child that has the focus now gets it back with the activation.
void Deactivate(HWND topLevel);

// The window hides or goes, and what stands in it: its focus goes to its parent.
void LeaveFocusToParent(const Window& window);
// The window is disabled: nobody has the focus.
void DropFocusOf(HWND window);

// What DefWindowProcW does when the window is activated.
void FocusActivated(Window& topLevel);

} // namespace windowing

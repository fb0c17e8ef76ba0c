// Windows of this user's other processes: what FindWindowW finds there, and how a process lets its
// own be found. Knows windows by their classes only.
#pragma once

#include <windows.h>

#include <string>

namespace windowing {

// While a class is announced, other processes find a window of it here. Requests are served by the
// thread that announced it, whenever it looks for messages. Where another process has announced the
// class, that one stays the one that is found.
void AnnounceClass(const std::u16string& className);
void WithdrawClass(const std::u16string& className);

// A handle that stands for the window of another process; null when no process has announced it.
HWND FindForeignWindow(const std::u16string& className);

// False, too, when the handle stands for no foreign window or its owner has not answered within a
// second.
bool ShowForeignWindow(HWND window, int command);
bool RaiseForeignWindow(HWND window);

} // namespace windowing

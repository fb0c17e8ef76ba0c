// The window classes that the system brings with it. Knows windows and what they are told; of Qt
// only what an edit control is made of.
#pragma once

#include <windows.h>

namespace controls {

LRESULT CALLBACK StaticProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT CALLBACK EditProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT CALLBACK ButtonProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam);

} // namespace controls

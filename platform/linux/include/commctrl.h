// Common controls: subclassing. Declarations only; the room windowing/ implements them.
#pragma once

#include <windef.h>

constexpr DWORD ICC_WIN95_CLASSES = 0x00FF;
constexpr DWORD ICC_STANDARD_CLASSES = 0x4000;

struct INITCOMMONCONTROLSEX {
    DWORD dwSize;
    DWORD dwICC;
};

// The controls that there are need no set-up.
BOOL InitCommonControlsEx(const INITCOMMONCONTROLSEX* classes);

using SUBCLASSPROC = LRESULT(CALLBACK*)(HWND, UINT, WPARAM, LPARAM, UINT_PTR id,
                                        DWORD_PTR reference);

// The procedure gets the window's messages before those that were set earlier, and before the
// window's own. The same procedure with the same id only gets another reference.
BOOL SetWindowSubclass(HWND window, SUBCLASSPROC procedure, UINT_PTR id, DWORD_PTR reference);
// Also from within the procedure; what is in progress goes on to the next one.
BOOL RemoveWindowSubclass(HWND window, SUBCLASSPROC procedure, UINT_PTR id);
// From within a subclass procedure: what the next one, and at last the window's own, does.
LRESULT DefSubclassProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

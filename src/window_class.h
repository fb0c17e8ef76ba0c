// The program's window classes: their names, their registration, and the object that a window
// shows.
#pragma once

#include <windows.h>

inline constexpr const WCHAR* kOverlayClass =
    TEXT("KelvarinOverlay"); // a second start looks for it
inline constexpr const WCHAR* kTooltipClass = TEXT("KelvarinTooltip");
inline constexpr const WCHAR* kPopupClass = TEXT("KelvarinConfigPopup");
inline constexpr const WCHAR* kListClass = TEXT("CCDropList");

inline constexpr WORD kProgramIcon = 101; // in the program's resources

// The program's icon, `size` pixels wide and high; null when it cannot be loaded.
inline HICON LoadProgramIcon(int size) {
    return static_cast<HICON>(LoadImageW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(kProgramIcon),
                                         IMAGE_ICON, size, size, 0));
}

// Registers a class once in the life of the process. `complete` gets the description and adds what
// the class has besides its name and procedure; each call in the sources stands for one class.
template <typename Complete>
void RegisterClassOnce(const WCHAR* name, WNDPROC procedure, const Complete& complete) {
    static const bool registered = [&] {
        WNDCLASSEXW description{};
        description.cbSize = sizeof description;
        description.lpfnWndProc = procedure;
        description.hInstance = GetModuleHandleW(nullptr);
        description.lpszClassName = name;
        complete(description);
        return RegisterClassExW(&description) != 0;
    }();
    static_cast<void>(registered);
}

// The object that CreateWindowExW was given for the window; null before WM_NCCREATE, which ties the
// two together. For window procedures.
template <typename Object>
Object* ObjectOf(HWND window, UINT message, LPARAM lParam) {
    if (message == WM_NCCREATE) {
        const auto* creation = reinterpret_cast<const CREATESTRUCTW*>(lParam);
        SetWindowLongPtrW(window, GWLP_USERDATA,
                          reinterpret_cast<LONG_PTR>(creation->lpCreateParams));
    }
    return reinterpret_cast<Object*>(GetWindowLongPtrW(window, GWLP_USERDATA));
}

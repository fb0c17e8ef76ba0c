// The notification area's icon (room shell/). Declarations only.
#pragma once

#include <windef.h>
#include <unknwn.h>

constexpr DWORD NIM_ADD = 0;
constexpr DWORD NIM_DELETE = 2;

constexpr UINT NIF_MESSAGE = 0x01;
constexpr UINT NIF_ICON = 0x02;
constexpr UINT NIF_TIP = 0x04;

struct NOTIFYICONDATAW {
    DWORD cbSize; // bytes of this structure
    HWND hWnd;
    UINT uID;
    UINT uFlags;
    UINT uCallbackMessage;
    HICON hIcon;
    WCHAR szTip[128];
    DWORD dwState;
    DWORD dwStateMask;
    WCHAR szInfo[256];
    union {
        UINT uTimeout;
        UINT uVersion;
    };
    WCHAR szInfoTitle[64];
    DWORD dwInfoFlags;
    GUID guidItem;
    HICON hBalloonIcon;
};

// Adds or removes an icon of the window; clicks on it are posted as `uCallbackMessage` with the id
// as wParam and the mouse message as lParam. A tray that appears later gets the icon too.
BOOL Shell_NotifyIconW(DWORD action, NOTIFYICONDATAW* icon);

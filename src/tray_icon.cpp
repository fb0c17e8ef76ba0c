#include "tray_icon.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace {

constexpr UINT kToggleCommand = 1001;
constexpr UINT kClickThroughCommand = 1002;
constexpr UINT kAllowRecordingCommand = 1003;
constexpr UINT kExitCommand = 1004;
constexpr TrayMenuRow kSeparatorRow{0, nullptr, false};

constexpr std::basic_string_view<WCHAR> kTip = TEXT("Kelvarin");

HICON LoadTrayIcon() {
    HANDLE icon =
        LoadImageW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(101), IMAGE_ICON, 16, 16, 0);
    return icon != nullptr ? static_cast<HICON>(icon) : LoadIconW(nullptr, IDI_APPLICATION);
}

// Flips a flag of the menu and tells whoever acts on it.
void Flip(bool& flag, const TrayIcon::Switch& onChange) {
    flag = !flag;
    if (onChange) {
        onChange(flag);
    }
}

} // namespace

TrayIcon::TrayIcon(HWND overlay, Toggle onToggleWindow, Switch onClickThrough,
                   Switch onAllowRecording, Toggle onExit)
    : hwnd_(overlay), onToggleWindow_(std::move(onToggleWindow)),
      onClickThrough_(std::move(onClickThrough)), onAllowRecording_(std::move(onAllowRecording)),
      onExit_(std::move(onExit)) {
    notifyData_.cbSize = sizeof notifyData_;
    notifyData_.hWnd = hwnd_;
    notifyData_.uID = 1;
    notifyData_.uFlags = NIF_MESSAGE | NIF_ICON | NIF_TIP;
    notifyData_.uCallbackMessage = kMsgTray;
    notifyData_.hIcon = LoadTrayIcon();
    std::copy(kTip.begin(), kTip.end(), std::begin(notifyData_.szTip));
    Shell_NotifyIconW(NIM_ADD, &notifyData_);
}

TrayIcon::~TrayIcon() {
    Shell_NotifyIconW(NIM_DELETE, &notifyData_);
    DestroyIcon(notifyData_.hIcon);
}

std::vector<TrayMenuRow> TrayIcon::MenuRows() const {
    return {
        {kToggleCommand, windowVisible ? TEXT("Hide Caption Window") : TEXT("Show Caption Window"),
         false},
        kSeparatorRow,
        {kClickThroughCommand, TEXT("Click-through Mode"), clickThrough},
        kSeparatorRow,
        {kAllowRecordingCommand, TEXT("Allow Screen Recording"), allowRecording},
        kSeparatorRow,
        {kExitCommand, TEXT("Exit"), false},
    };
}

void TrayIcon::ShowMenu() {
    HMENU menu = CreatePopupMenu();
    for (const TrayMenuRow& row : MenuRows()) {
        const UINT kind = row.id == 0 ? MF_SEPARATOR : MF_STRING;
        AppendMenuW(menu, kind | (row.checked ? MF_CHECKED : 0), row.id, row.text);
    }
    SetForegroundWindow(hwnd_); // else a click elsewhere would not close the menu
    POINT pointer{};
    GetCursorPos(&pointer);
    const BOOL chosen = TrackPopupMenu(menu, TPM_RIGHTBUTTON | TPM_BOTTOMALIGN | TPM_RETURNCMD,
                                       pointer.x, pointer.y, 0, hwnd_, nullptr);
    DestroyMenu(menu);
    RunCommand(static_cast<UINT>(chosen));
}

void TrayIcon::ToggleWindow() {
    if (onToggleWindow_) {
        onToggleWindow_();
    }
}

void TrayIcon::RunCommand(UINT id) {
    switch (id) {
    case kToggleCommand:
        ToggleWindow();
        break;
    case kClickThroughCommand:
        Flip(clickThrough, onClickThrough_);
        break;
    case kAllowRecordingCommand:
        Flip(allowRecording, onAllowRecording_);
        break;
    case kExitCommand:
        if (onExit_) {
            onExit_();
        }
        break;
    default:
        break;
    }
}

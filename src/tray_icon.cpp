#include "tray_icon.h"

#include "owner.h"
#include "window_class.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>
#include <utility>

namespace {

constexpr std::basic_string_view<WCHAR> kTip = TEXT("Kelvarin");

HICON LoadTrayIcon() {
    HICON icon = LoadProgramIcon(16);
    return icon != nullptr ? icon : LoadIconW(nullptr, IDI_APPLICATION);
}

} // namespace

// A row that lacks something does not compile.
struct TrayIcon::Command {
    using Flag = bool TrayIcon::*;

    constexpr Command(UINT number, const WCHAR* usualText, const WCHAR* textWhenHidden, Flag flag,
                      Switch TrayIcon::*onSwitch, Toggle TrayIcon::*onToggle)
        : id(number), text(usualText), hiddenText(textWhenHidden), checked(flag), change(onSwitch),
          toggle(onToggle) {}

    UINT id;
    const WCHAR* text;
    const WCHAR* hiddenText; // while the caption window is hidden
    Flag checked;            // shown by a check mark and flipped by the command; null: none
    Switch TrayIcon::*change;
    Toggle TrayIcon::*toggle;
};
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

// From top to bottom, with a separator between each two.
struct TrayIcon::Menu {
    using Icon = TrayIcon;

    static constexpr std::array kCommands = {
        Command(1001, TEXT("Hide Caption Window"), TEXT("Show Caption Window"), nullptr, nullptr,
                &Icon::onToggleWindow_),
        Command(1002, TEXT("Click-through Mode"), TEXT("Click-through Mode"), &Icon::clickThrough,
                &Icon::onClickThrough_, nullptr),
        Command(1003, TEXT("Allow Screen Recording"), TEXT("Allow Screen Recording"),
                &Icon::allowRecording, &Icon::onAllowRecording_, nullptr),
        Command(1004, TEXT("Exit"), TEXT("Exit"), nullptr, nullptr, &Icon::onExit_),
    };
};

std::vector<TrayMenuRow> TrayIcon::MenuRows() const {
    std::vector<TrayMenuRow> rows;
    for (const Command& command : Menu::kCommands) {
        if (!rows.empty()) {
            rows.push_back({0, nullptr, false});
        }
        rows.push_back({command.id, windowVisible ? command.text : command.hiddenText,
                        command.checked != nullptr && this->*command.checked});
    }
    return rows;
}

void TrayIcon::ShowMenu() {
    MenuOwner menu(CreatePopupMenu());
    for (const TrayMenuRow& row : MenuRows()) {
        const UINT kind = row.id == 0 ? MF_SEPARATOR : MF_STRING;
        AppendMenuW(menu.get(), kind | (row.checked ? MF_CHECKED : 0), row.id, row.text);
    }
    SetForegroundWindow(hwnd_); // else a click elsewhere would not close the menu
    POINT pointer{};
    GetCursorPos(&pointer);
    const BOOL chosen =
        TrackPopupMenu(menu.get(), TPM_RIGHTBUTTON | TPM_BOTTOMALIGN | TPM_RETURNCMD, pointer.x,
                       pointer.y, 0, hwnd_, nullptr);
    menu.Reset(); // before a command that may take long, or end the program
    RunCommand(static_cast<UINT>(chosen));
}

void TrayIcon::ToggleWindow() {
    if (onToggleWindow_) {
        onToggleWindow_();
    }
}

void TrayIcon::RunCommand(UINT id) {
    const auto* const command = std::find_if(Menu::kCommands.begin(), Menu::kCommands.end(),
                                             [id](const Command& one) { return one.id == id; });
    if (command == Menu::kCommands.end()) {
        return;
    }
    if (command->checked != nullptr) {
        this->*command->checked = !(this->*command->checked);
    }
    if (command->change != nullptr && this->*command->change) {
        (this->*command->change)(this->*command->checked);
    }
    if (command->toggle != nullptr && this->*command->toggle) {
        (this->*command->toggle)();
    }
}

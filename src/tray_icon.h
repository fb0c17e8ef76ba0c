// The icon in the notification area and its menu. Knows nothing of the overlay but its window: what
// the commands mean lies in the callbacks.
#pragma once

#include <windows.h>
#include <shellapi.h>

#include <functional>
#include <vector>

inline constexpr UINT kMsgTray = WM_APP + 1; // from the icon; lParam is the mouse message

// One row of the menu; id 0 is a separator.
struct TrayMenuRow {
    UINT id;
    const WCHAR* text;
    bool checked;
};

// UI thread only. The icon is there from construction to destruction.
class TrayIcon {
public:
    using Toggle = std::function<void()>;
    using Switch = std::function<void(bool)>;

    // Any callback may be empty.
    TrayIcon(HWND overlay, Toggle onToggleWindow, Switch onClickThrough, Switch onAllowRecording,
             Toggle onExit);
    ~TrayIcon();
    TrayIcon(const TrayIcon&) = delete;
    TrayIcon& operator=(const TrayIcon&) = delete;

    // Opens the menu at the pointer and carries out what is chosen; returns when it has closed.
    void ShowMenu();
    void ToggleWindow();

    std::vector<TrayMenuRow> MenuRows() const;
    // Carries out a row of the menu; other ids do nothing.
    void RunCommand(UINT id);

private:
    struct Command;
    struct Menu;

    HWND hwnd_;
    NOTIFYICONDATAW notifyData_{}; // kept for the removal

public:
    // What the menu shows; written by the owner.
    bool windowVisible = true;
    bool clickThrough = false;
    bool allowRecording = false;

private:
    Toggle onToggleWindow_;
    Switch onClickThrough_;
    Switch onAllowRecording_;
    Toggle onExit_;
};

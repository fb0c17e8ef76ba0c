// The icon in the notification area. Knows of the window only that messages can be posted to it.
#include "application/application.h"
#include "windowing/icons.h"

#include <windows.h>
#include <QIcon>
#include <QPixmap>
#include <QSystemTrayIcon>
#include <shellapi.h>

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

namespace shell {

namespace {

using Key = std::pair<HWND, UINT>;
using Icons = std::map<Key, std::unique_ptr<QSystemTrayIcon>>;

// Never destroyed: icons outlive Qt's statics badly.
Icons& AllIcons() {
    static Icons& icons = *std::make_unique<Icons>().release();
    return icons;
}

struct Click {
    QSystemTrayIcon::ActivationReason reason;
    LPARAM message;
};

// Trays tell of a double click after the first click of it, and the second click is part of it. A
// right click is told once, as the release that menus open on.
constexpr Click kClicks[] = {
    {QSystemTrayIcon::Trigger, WM_LBUTTONUP},
    {QSystemTrayIcon::DoubleClick, WM_LBUTTONDBLCLK},
    {QSystemTrayIcon::DoubleClick, WM_LBUTTONUP},
    {QSystemTrayIcon::Context, WM_RBUTTONUP},
};

// Posted, not sent: whoever opens a menu on it does so outside of Qt's own handling of the click.
void PostClick(const Key& key, UINT callbackMessage, QSystemTrayIcon::ActivationReason reason) {
    for (const Click& click : kClicks) {
        if (click.reason == reason) {
            PostMessageW(key.first, callbackMessage, key.second, click.message);
        }
    }
}

QString TipOf(const NOTIFYICONDATAW& data) {
    const auto* const end = std::find(std::begin(data.szTip), std::end(data.szTip), u'\0');
    return QString::fromUtf16(data.szTip, end - std::begin(data.szTip));
}

bool Add(const Key& key, const NOTIFYICONDATAW& data) {
    const QImage picture = windowing::PictureOf(data.hIcon);
    if (AllIcons().contains(key) || IsWindow(key.first) == FALSE || picture.isNull()) {
        return false;
    }
    auto icon = std::make_unique<QSystemTrayIcon>(QIcon(QPixmap::fromImage(picture)));
    if ((data.uFlags & NIF_TIP) != 0) {
        icon->setToolTip(TipOf(data));
    }
    if ((data.uFlags & NIF_MESSAGE) != 0) {
        QObject::connect(icon.get(), &QSystemTrayIcon::activated, icon.get(),
                         [key, callbackMessage = data.uCallbackMessage](auto reason) {
                             PostClick(key, callbackMessage, reason);
                         });
    }
    icon->show(); // also without a tray: one that appears later takes it up
    AllIcons().emplace(key, std::move(icon));
    return true;
}

} // namespace
} // namespace shell

BOOL Shell_NotifyIconW(DWORD action, NOTIFYICONDATAW* data) {
    if (data == nullptr || data->cbSize != sizeof(NOTIFYICONDATAW) ||
        application::Instance() == nullptr) {
        return FALSE;
    }
    const shell::Key key{data->hWnd, data->uID};
    switch (action) {
    case NIM_ADD:
        return shell::Add(key, *data) ? TRUE : FALSE;
    case NIM_DELETE:
        return shell::AllIcons().erase(key) != 0 ? TRUE : FALSE;
    default:
        return FALSE;
    }
}

// Popup menus. Knows nothing of what their rows do.
#include "application/application.h"
#include "windowing/message_loop.h"

#include <windows.h>
#include <QAction>
#include <QMenu>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace shell {

namespace {

struct Row {
    UINT flags; // MF_...
    UINT_PTR id;
    std::u16string text;
};

} // namespace
} // namespace shell

struct HMENU__ {
    std::vector<shell::Row> rows;
};

namespace shell {

namespace {

using Menus = std::map<HMENU, std::unique_ptr<HMENU__>>;

Menus& AllMenus() {
    static Menus menus;
    return menus;
}

HMENU__* Find(HMENU menu) {
    const auto found = AllMenus().find(menu);
    return found == AllMenus().end() ? nullptr : found->second.get();
}

void AddRow(QMenu& menu, const Row& row) {
    if ((row.flags & MF_SEPARATOR) != 0) {
        menu.addSeparator();
        return;
    }
    QAction* action = menu.addAction(QString::fromStdU16String(row.text));
    action->setData(QVariant::fromValue<qulonglong>(row.id));
    action->setCheckable((row.flags & MF_CHECKED) != 0);
    action->setChecked((row.flags & MF_CHECKED) != 0);
}

QPoint TopLeft(const QMenu& menu, UINT flags, int x, int y) {
    return {x, (flags & TPM_BOTTOMALIGN) != 0 ? y - menu.sizeHint().height() : y};
}

} // namespace
} // namespace shell

HMENU CreatePopupMenu() {
    auto menu = std::make_unique<HMENU__>();
    HMENU handle = menu.get();
    shell::AllMenus().emplace(handle, std::move(menu));
    return handle;
}

BOOL AppendMenuW(HMENU handle, UINT flags, UINT_PTR id, LPCWSTR text) {
    HMENU__* menu = shell::Find(handle);
    if (menu == nullptr || (text == nullptr && (flags & MF_SEPARATOR) == 0)) {
        return FALSE;
    }
    menu->rows.push_back({flags, id, text != nullptr ? text : TEXT("")});
    return TRUE;
}

BOOL TrackPopupMenu(HMENU handle, UINT flags, int x, int y, int /*reserved*/, HWND window,
                    const RECT* /*rect*/) {
    const HMENU__* menu = shell::Find(handle);
    if (menu == nullptr || (flags & TPM_RETURNCMD) == 0 || IsWindow(window) == FALSE ||
        application::Instance() == nullptr) {
        return 0;
    }
    ReleaseCapture(); // the menu takes the pointer
    QMenu shown;
    for (const shell::Row& row : menu->rows) {
        shell::AddRow(shown, row);
    }
    UINT_PTR chosen = 0;
    QObject::connect(&shown, &QMenu::triggered, &shown,
                     [&](const QAction* action) { chosen = action->data().toULongLong(); });
    shown.popup(shell::TopLeft(shown, flags, x, y));
    windowing::DispatchUntil([&] { return !shown.isVisible(); });
    return static_cast<BOOL>(chosen);
}

BOOL DestroyMenu(HMENU menu) {
    return shell::AllMenus().erase(menu) != 0 ? TRUE : FALSE;
}

// Windows from CreateWindowExW to DestroyWindow.
#include "application/application.h"
#include "painting/picture.h"
#include "windowing/focus.h"
#include "windowing/foreign_windows.h"
#include "windowing/icons.h"
#include "windowing/message_loop.h"
#include "windowing/message_queue.h"
#include "windowing/painting_cycle.h"
#include "windowing/placement.h"
#include "windowing/pointer.h"
#include "windowing/subclassing.h"
#include "windowing/surface.h"
#include "windowing/timers.h"
#include "windowing/window_classes.h"
#include "windowing/window_table.h"

#include <QIcon>
#include <QPixmap>

#include <algorithm>
#include <utility>

namespace windowing {

namespace {

// What the first window needs.
bool IsReady() {
    static const bool ready = [] {
        if (application::Instance() == nullptr) {
            return false;
        }
        PrepareLoop();
        WatchScreens();
        return true;
    }();
    return ready;
}

// The first of its class is found by other processes too.
bool IsUnownedTopLevel(const Window& window) {
    return !window.IsChild() && window.owner == nullptr;
}

bool HasUnownedWindow(const WindowClass* windowClass) {
    const auto windows = TopLevels();
    return std::any_of(windows.begin(), windows.end(), [&](const auto& window) {
        return window->windowClass == windowClass && IsUnownedTopLevel(*window);
    });
}

void Admit(const std::shared_ptr<Window>& window) {
    if (IsUnownedTopLevel(*window) && !HasUnownedWindow(window->windowClass)) {
        AnnounceClass(window->windowClass->name);
    }
    Enter(window);
    Queue().Admit(window->handle);
}

void Dismiss(Window& window) {
    Queue().Dismiss(window.handle);
    CloseCanvas(window);
    Leave(window);
    if (IsUnownedTopLevel(window) && !HasUnownedWindow(window.windowClass)) {
        WithdrawClass(window.windowClass->name);
    }
    if (window.surface != nullptr) {
        window.surface->hide();
    }
}

void GiveSurface(Window& window) {
    window.surface = std::make_unique<Surface>(window);
    const QImage icon = PictureOf(window.windowClass->icon);
    if (!icon.isNull()) {
        window.surface->setWindowIcon(QIcon(QPixmap::fromImage(icon)));
    }
}

std::shared_ptr<Window> Make(const WindowClass& windowClass, const CREATESTRUCTW& creation) {
    auto window = std::make_shared<Window>();
    window->handle = NewHandle();
    window->windowClass = &windowClass;
    window->procedure = windowClass.procedure;
    window->title = creation.lpszName != nullptr ? creation.lpszName : TEXT("");
    window->style = static_cast<DWORD>(creation.style) & ~WS_VISIBLE;
    window->exStyle = creation.dwExStyle;
    window->rect = {creation.x, creation.y, creation.x + std::max(creation.cx, 0),
                    creation.y + std::max(creation.cy, 0)};
    if (window->IsChild()) {
        window->parent = creation.hwndParent;
        window->id = static_cast<int>(reinterpret_cast<LONG_PTR>(creation.hMenu));
        window->dpi = Find(window->parent)->dpi;
    } else {
        window->owner = creation.hwndParent;
        window->dpi = DpiAt(window->rect);
        GiveSurface(*window);
    }
    return window;
}

// Tells the window of its creation. False: it is gone, or does not want to be.
bool Created(Window& window, CREATESTRUCTW& creation) {
    const auto parameter = reinterpret_cast<LPARAM>(&creation);
    if (Send(window, WM_NCCREATE, 0, parameter) == FALSE) {
        Send(window, WM_NCDESTROY, 0, 0);
        Dismiss(window);
        return false;
    }
    if (Send(window, WM_CREATE, 0, parameter) == -1) {
        DestroyWindow(window.handle);
    }
    return Find(window.handle) != nullptr;
}

std::vector<std::shared_ptr<Window>> ChildrenOf(const Window& window) {
    std::vector<std::shared_ptr<Window>> children;
    for (const HWND child : window.children) {
        children.push_back(Find(child));
    }
    return children;
}

// The window first, then what stands in it: each still has all that it stands in.
void TellOfDestruction(Window& window) {
    window.destroying = true;
    Send(window, WM_DESTROY, 0, 0);
    for (const auto& child : ChildrenOf(window)) {
        if (!child->destroying) {
            TellOfDestruction(*child);
        }
    }
}

// The other way round. A window may be gone already, when its own end made its parent go.
void Finish(Window& window) {
    if (Find(window.handle) == nullptr) {
        return;
    }
    for (const auto& child : ChildrenOf(window)) {
        Finish(*child);
    }
    DropCaptureOf(window.handle);
    AllTimers().KillAllOf(window.handle);
    Send(window, WM_NCDESTROY, 0, 0);
    Dismiss(window);
}

} // namespace

LRESULT Send(Window& window, UINT message, WPARAM wParam, LPARAM lParam) {
    return CallFirst(window, message, wParam, lParam);
}

} // namespace windowing

using windowing::Find;
using windowing::Window;
using windowing::WindowClass;

HWND CreateWindowExW(DWORD exStyle, LPCWSTR className, LPCWSTR title, DWORD style, int x, int y,
                     int width, int height, HWND parent, HMENU menu, HINSTANCE instance,
                     LPVOID parameter) {
    const WindowClass* windowClass =
        className != nullptr ? windowing::FindClass(className) : nullptr;
    const bool parentMissing =
        Find(parent) == nullptr && (parent != nullptr || (style & WS_CHILD) != 0);
    if (windowClass == nullptr || parentMissing || !windowing::IsReady()) {
        return nullptr;
    }
    CREATESTRUCTW creation{
        parameter, instance,  menu,   parent, height, width, y, x, static_cast<LONG>(style),
        title,     className, exStyle};
    const std::shared_ptr<Window> window = windowing::Make(*windowClass, creation);
    windowing::Admit(window);
    if (!windowing::Created(*window, creation)) {
        return nullptr;
    }
    if ((style & WS_VISIBLE) != 0) {
        windowing::Show(*window, SW_SHOW);
    }
    return window->handle;
}

BOOL DestroyWindow(HWND handle) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr || window->destroying) {
        return FALSE;
    }
    window->destroying = true;
    windowing::Show(*window, SW_HIDE);
    for (const auto& owned : windowing::OwnedBy(handle)) {
        DestroyWindow(owned->handle);
    }
    windowing::TellOfDestruction(*window);
    windowing::Finish(*window);
    return TRUE;
}

BOOL IsWindow(HWND window) {
    return Find(window) != nullptr ? TRUE : FALSE;
}

LONG_PTR GetWindowLongPtrW(HWND handle, int index) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr) {
        return 0;
    }
    switch (index) {
    case GWLP_WNDPROC:
        return reinterpret_cast<LONG_PTR>(window->procedure);
    case GWL_STYLE:
        return window->style;
    case GWL_EXSTYLE:
        return window->exStyle;
    case GWLP_USERDATA:
        return window->userData;
    default:
        return 0;
    }
}

LONG_PTR SetWindowLongPtrW(HWND handle, int index, LONG_PTR value) {
    // What ShowWindow and EnableWindow alone change, and what a window is for all its life.
    constexpr DWORD kKept = WS_VISIBLE | WS_DISABLED | WS_CHILD | WS_POPUP;
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr) {
        return 0;
    }
    const LONG_PTR before = GetWindowLongPtrW(handle, index);
    switch (index) {
    case GWLP_WNDPROC:
        window->procedure = reinterpret_cast<WNDPROC>(value);
        break;
    case GWL_STYLE:
        window->style = (static_cast<DWORD>(value) & ~kKept) | (window->style & kKept);
        break;
    case GWL_EXSTYLE:
        window->exStyle = static_cast<DWORD>(value);
        if (window->surface != nullptr) {
            window->surface->SetClickThrough(window->ClickThrough());
        }
        break;
    case GWLP_USERDATA:
        window->userData = value;
        break;
    default:
        return 0;
    }
    return before;
}

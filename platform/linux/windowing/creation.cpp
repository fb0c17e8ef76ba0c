// Window classes, and windows from CreateWindowExW to DestroyWindow. Owns the table of windows.
#include "windowing/window.h"

#include "application/application.h"
#include "painting/picture.h"
#include "windowing/foreign_windows.h"
#include "windowing/icons.h"
#include "windowing/message_loop.h"
#include "windowing/message_queue.h"
#include "windowing/placement.h"
#include "windowing/pointer.h"
#include "windowing/surface.h"
#include "windowing/timers.h"

#include <algorithm>
#include <deque>
#include <map>

#include <QIcon>
#include <QPixmap>

struct HWND__ {};

namespace windowing {

namespace {

// The tables are never destroyed: a window that outlives main() must not take Qt's objects down
// after Qt's own statics.
template <typename T>
T& Everlasting() {
    static T& table = *std::make_unique<T>().release();
    return table;
}

using Classes = std::deque<WindowClass>; // addresses stay
using Handles = std::deque<HWND__>;
using Windows = std::map<HWND, std::shared_ptr<Window>>;

Classes& AllClasses() {
    return Everlasting<Classes>();
}

const WindowClass* FindClass(std::u16string_view name) {
    const auto& classes = AllClasses();
    const auto found = std::find_if(classes.begin(), classes.end(),
                                    [&](const WindowClass& one) { return one.name == name; });
    return found == classes.end() ? nullptr : &*found;
}

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

bool HasUnownedWindow(const WindowClass* windowClass) {
    const auto& windows = Everlasting<Windows>();
    return std::any_of(windows.begin(), windows.end(), [&](const auto& entry) {
        return entry.second->windowClass == windowClass && entry.second->owner == nullptr;
    });
}

// From here on the window is found, and gets what is posted to it.
void Enter(const std::shared_ptr<Window>& window) {
    if (window->owner == nullptr && !HasUnownedWindow(window->windowClass)) {
        AnnounceClass(window->windowClass->name);
    }
    Everlasting<Windows>().emplace(window->handle, window);
    Queue().Admit(window->handle);
}

void Leave(Window& window) {
    Queue().Dismiss(window.handle);
    Everlasting<Windows>().erase(window.handle);
    if (window.owner == nullptr && !HasUnownedWindow(window.windowClass)) {
        WithdrawClass(window.windowClass->name);
    }
    window.surface->hide();
}

void DestroyOwned(HWND owner) {
    for (const auto& window : AllWindows()) {
        if (window->owner == owner) {
            DestroyWindow(window->handle);
        }
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
    window->owner = creation.hwndParent;
    window->rect = {creation.x, creation.y, creation.x + std::max(creation.cx, 0),
                    creation.y + std::max(creation.cy, 0)};
    window->dpi = DpiAt(window->rect);
    window->surface = std::make_unique<Surface>(*window);
    const QImage icon = PictureOf(windowClass.icon);
    if (!icon.isNull()) {
        window->surface->setWindowIcon(QIcon(QPixmap::fromImage(icon)));
    }
    return window;
}

// Tells the window of its creation. False: it is gone, or does not want to be.
bool Created(Window& window, CREATESTRUCTW& creation) {
    const auto parameter = reinterpret_cast<LPARAM>(&creation);
    if (Send(window, WM_NCCREATE, 0, parameter) == FALSE) {
        Send(window, WM_NCDESTROY, 0, 0);
        Leave(window);
        return false;
    }
    if (Send(window, WM_CREATE, 0, parameter) == -1) {
        DestroyWindow(window.handle);
    }
    return Find(window.handle) != nullptr;
}

} // namespace

Window::Window() = default;

// A window that is destroyed in the middle of its painting.
Window::~Window() {
    if (canvasContext != nullptr) {
        painting::CloseContext(canvasContext);
    }
}

std::shared_ptr<Window> Find(HWND handle) {
    const auto& windows = Everlasting<Windows>();
    const auto found = windows.find(handle);
    return found == windows.end() ? nullptr : found->second;
}

std::vector<std::shared_ptr<Window>> AllWindows() {
    std::vector<std::shared_ptr<Window>> all;
    for (const auto& [handle, window] : Everlasting<Windows>()) {
        all.push_back(window);
    }
    return all;
}

HWND NewHandle() {
    return &Everlasting<Handles>().emplace_back();
}

LRESULT Send(Window& window, UINT message, WPARAM wParam, LPARAM lParam) {
    return window.procedure(window.handle, message, wParam, lParam);
}

} // namespace windowing

using windowing::Find;
using windowing::Window;
using windowing::WindowClass;

ATOM RegisterClassExW(const WNDCLASSEXW* windowClass) {
    if (windowClass == nullptr || windowClass->cbSize != sizeof(WNDCLASSEXW) ||
        windowClass->lpszClassName == nullptr || windowClass->lpfnWndProc == nullptr ||
        windowing::FindClass(windowClass->lpszClassName) != nullptr) {
        return 0;
    }
    constexpr std::size_t kFirstAtom = 0xC000;
    auto& classes = windowing::AllClasses();
    const auto atom = static_cast<ATOM>(kFirstAtom + classes.size());
    classes.push_back({windowClass->lpszClassName, windowClass->style, windowClass->lpfnWndProc,
                       windowClass->hIcon, windowClass->hCursor, windowClass->hbrBackground, atom});
    return atom;
}

HWND CreateWindowExW(DWORD exStyle, LPCWSTR className, LPCWSTR title, DWORD style, int x, int y,
                     int width, int height, HWND parent, HMENU menu, HINSTANCE instance,
                     LPVOID parameter) {
    const WindowClass* windowClass =
        className != nullptr ? windowing::FindClass(className) : nullptr;
    const bool parentGone = parent != nullptr && Find(parent) == nullptr;
    if (windowClass == nullptr || parentGone || (style & WS_CHILD) != 0 || !windowing::IsReady()) {
        return nullptr;
    }
    CREATESTRUCTW creation{
        parameter, instance,  menu,   parent, height, width, y, x, static_cast<LONG>(style),
        title,     className, exStyle};
    const std::shared_ptr<Window> window = windowing::Make(*windowClass, creation);
    windowing::Enter(window);
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
    windowing::DestroyOwned(handle);
    windowing::Send(*window, WM_DESTROY, 0, 0);
    windowing::DropCaptureOf(handle);
    windowing::AllTimers().KillAllOf(handle);
    windowing::Send(*window, WM_NCDESTROY, 0, 0);
    windowing::Leave(*window);
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
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr) {
        return 0;
    }
    const LONG_PTR before = GetWindowLongPtrW(handle, index);
    switch (index) {
    case GWLP_WNDPROC:
        window->procedure = reinterpret_cast<WNDPROC>(value);
        break;
    case GWL_STYLE: // visibility is ShowWindow's alone
        window->style = (static_cast<DWORD>(value) & ~WS_VISIBLE) | (window->style & WS_VISIBLE);
        break;
    case GWL_EXSTYLE:
        window->exStyle = static_cast<DWORD>(value);
        window->surface->SetClickThrough(window->ClickThrough());
        break;
    case GWLP_USERDATA:
        window->userData = value;
        break;
    default:
        return 0;
    }
    return before;
}

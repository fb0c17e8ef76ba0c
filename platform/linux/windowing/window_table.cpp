#include "windowing/window_table.h"

#include "process/never_destroyed.h"
#include "windowing/surface.h"

#include <algorithm>
#include <deque>
#include <unordered_map>

struct HWND__ {};

namespace windowing {

namespace {

using Handles = std::deque<HWND__>; // addresses stay
using Windows = std::unordered_map<HWND, std::shared_ptr<Window>>;
using Stack = std::vector<HWND>; // top-level windows, the lowest first

// Never destroyed: a window that outlives main() must not take Qt's objects down after Qt's own
// statics.
template <typename Table>
Table& The() {
    static Table& table = process::NeverDestroyed<Table>();
    return table;
}

} // namespace

Window::Window() = default;

Window::~Window() = default;

std::shared_ptr<Window> Find(HWND handle) {
    const auto& windows = The<Windows>();
    const auto found = windows.find(handle);
    return found == windows.end() ? nullptr : found->second;
}

HWND NewHandle() {
    return &The<Handles>().emplace_back();
}

RECT Common(const RECT& one, const RECT& other) {
    return {std::max(one.left, other.left), std::max(one.top, other.top),
            std::min(one.right, other.right), std::min(one.bottom, other.bottom)};
}

void Enter(const std::shared_ptr<Window>& window) {
    The<Windows>().emplace(window->handle, window);
    if (!window->IsChild()) {
        The<Stack>().push_back(window->handle);
    } else if (const auto parent = Find(window->parent)) {
        parent->children.push_back(window->handle);
    }
}

void Leave(const Window& window) {
    if (const auto parent = Find(window.parent)) {
        std::erase(parent->children, window.handle);
    }
    std::erase(The<Stack>(), window.handle);
    The<Windows>().erase(window.handle);
}

std::vector<std::shared_ptr<Window>> TopLevels() {
    std::vector<std::shared_ptr<Window>> all;
    for (const HWND handle : The<Stack>()) {
        all.push_back(Find(handle));
    }
    return all;
}

void RaiseInStack(HWND topLevel) {
    auto& stack = The<Stack>();
    const auto found = std::find(stack.begin(), stack.end(), topLevel);
    if (found != stack.end()) {
        std::rotate(found, found + 1, stack.end());
    }
    for (const auto& owned : OwnedBy(topLevel)) {
        RaiseInStack(owned->handle);
    }
}

std::vector<std::shared_ptr<Window>> OwnedBy(HWND owner) {
    auto windows = TopLevels();
    std::erase_if(windows, [&](const auto& window) { return window->owner != owner; });
    return windows;
}

Window& TopLevelOf(Window& window) {
    Window* at = &window;
    while (at->IsChild()) {
        at = Find(at->parent).get();
    }
    return *at;
}

const Window& TopLevelOf(const Window& window) {
    return window.IsChild() ? TopLevelOf(*Find(window.parent)) : window;
}

Surface& SurfaceOf(const Window& window) {
    return *TopLevelOf(window).surface;
}

bool IsWithin(HWND window, HWND ancestor) {
    for (auto at = Find(window); at != nullptr; at = Find(at->parent)) {
        if (at->handle == ancestor) {
            return true;
        }
    }
    return false;
}

bool Shows(const Window& window) {
    return window.visible && (!window.IsChild() || Shows(*Find(window.parent)));
}

POINT OriginInTopLevel(const Window& window) {
    if (!window.IsChild()) {
        return {0, 0};
    }
    const POINT parent = OriginInTopLevel(*Find(window.parent));
    return {parent.x + window.rect.left, parent.y + window.rect.top};
}

POINT OriginOnScreen(const Window& window) {
    const RECT& top = TopLevelOf(window).rect;
    const POINT origin = OriginInTopLevel(window);
    return {top.left + origin.x, top.top + origin.y};
}

RECT RectOnScreen(const Window& window) {
    const POINT origin = OriginOnScreen(window);
    return Shifted(window.Client(), origin.x, origin.y);
}

} // namespace windowing

#include "windowing/hit_test.h"

#include "windowing/window_table.h"

#include <algorithm>

namespace windowing {

namespace {

bool TakesPointerAt(const Window& topLevel, POINT onScreen) {
    return topLevel.visible && topLevel.Enabled() && !topLevel.ClickThrough() &&
           Contains(topLevel.rect, onScreen);
}

// A child may let its parent have the point.
bool IsTransparentAt(Window& child, POINT onScreen) {
    return Send(child, WM_NCHITTEST, 0, MAKELPARAM(onScreen.x, onScreen.y)) == HTTRANSPARENT;
}

std::shared_ptr<Window> Innermost(const std::shared_ptr<Window>& window, POINT onScreen) {
    const auto children = window->children;
    for (const HWND handle : children) {
        const auto child = Find(handle);
        if (child != nullptr && child->visible && child->Enabled() &&
            Contains(RectOnScreen(*child), onScreen) && !IsTransparentAt(*child, onScreen)) {
            return Innermost(child, onScreen);
        }
    }
    return window;
}

} // namespace

std::shared_ptr<Window> WindowAt(POINT onScreen, HWND preferred) {
    const std::shared_ptr<Window> first = Find(preferred);
    if (first != nullptr && !first->IsChild() && TakesPointerAt(*first, onScreen)) {
        return Innermost(first, onScreen);
    }
    const auto windows = TopLevels();
    const auto found = std::find_if(windows.rbegin(), windows.rend(), [&](const auto& window) {
        return TakesPointerAt(*window, onScreen);
    });
    return found == windows.rend() ? nullptr : Innermost(*found, onScreen);
}

} // namespace windowing

HWND WindowFromPoint(POINT onScreen) {
    const auto window = windowing::WindowAt(onScreen, nullptr);
    return window == nullptr ? nullptr : window->handle;
}

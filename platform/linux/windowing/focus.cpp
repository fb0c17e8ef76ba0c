#include "windowing/focus.h"

#include "windowing/surface.h"
#include "windowing/window_table.h"

#include <memory>
#include <utility>

namespace windowing {

namespace {

struct Focus {
    HWND active = nullptr;  // a top-level window
    HWND focused = nullptr; // the active window or one in it
};

Focus& TheFocus() {
    static Focus focus;
    return focus;
}

void Tell(HWND handle, UINT message, HWND other) {
    if (const auto window = Find(handle)) {
        Send(*window, message, reinterpret_cast<WPARAM>(other), 0);
    }
}

// Null for nobody.
void MoveFocus(HWND next) {
    const HWND previous = std::exchange(TheFocus().focused, next);
    if (previous == next) {
        return;
    }
    Tell(previous, WM_KILLFOCUS, next);
    if (TheFocus().focused == next) { // unless somebody has moved it on
        Tell(next, WM_SETFOCUS, previous);
    }
}

void TellOfActivation(HWND handle, WORD state, HWND other) {
    if (const auto window = Find(handle)) {
        Send(*window, WM_ACTIVATE, MAKEWPARAM(state, 0), reinterpret_cast<LPARAM>(other));
    }
}

// Takes the activation from whoever has it, for `next` or for nobody.
void EndActivation(HWND next) {
    const HWND previous = std::exchange(TheFocus().active, next);
    const auto window = Find(previous);
    if (window == nullptr) {
        return;
    }
    window->focusBefore = TheFocus().focused;
    TellOfActivation(previous, WA_INACTIVE, next);
    MoveFocus(nullptr);
}

// Of the system; hidden windows cannot have it.
void AskForActivation(const Window& topLevel) {
    if (topLevel.visible) {
        topLevel.surface->Raise(true);
    }
}

bool CanHaveFocus(const Window& window) {
    return Shows(window) && window.Enabled();
}

} // namespace

void Activate(HWND topLevel) {
    const auto window = Find(topLevel);
    if (window == nullptr || !window->TakesActivation() || TheFocus().active == topLevel) {
        return;
    }
    const HWND previous = TheFocus().active;
    EndActivation(topLevel);
    TellOfActivation(topLevel, WA_ACTIVE, previous);
}

void Deactivate(HWND topLevel) {
    if (TheFocus().active == topLevel) {
        EndActivation(nullptr);
    }
}

void LeaveFocusToParent(const Window& window) {
    if (!window.IsChild()) {
        Deactivate(window.handle);
        if (const auto left = Find(window.handle)) {
            left->focusBefore = nullptr;
        }
    } else if (TheFocus().focused != nullptr && IsWithin(TheFocus().focused, window.handle)) {
        MoveFocus(window.parent);
    }
}

void DropFocusOf(HWND window) {
    if (TheFocus().focused != nullptr && IsWithin(TheFocus().focused, window)) {
        MoveFocus(nullptr);
    }
}

void FocusActivated(Window& topLevel) {
    const auto before = Find(topLevel.focusBefore);
    SetFocus(before != nullptr && CanHaveFocus(*before) ? before->handle : topLevel.handle);
}

} // namespace windowing

using windowing::Find;
using windowing::TheFocus;

HWND GetFocus() {
    return TheFocus().focused;
}

HWND SetFocus(HWND handle) {
    const HWND previous = TheFocus().focused;
    if (handle == nullptr) {
        windowing::MoveFocus(nullptr);
        return previous;
    }
    const auto window = Find(handle);
    if (window == nullptr || !window->Enabled()) {
        return nullptr;
    }
    const HWND topLevel = windowing::TopLevelOf(*window).handle;
    if (!windowing::TopLevelOf(*window).TakesActivation()) {
        return nullptr;
    }
    if (TheFocus().active != topLevel) {
        windowing::Activate(topLevel);
        windowing::AskForActivation(windowing::TopLevelOf(*window));
    }
    if (Find(handle) != nullptr && TheFocus().active == topLevel) {
        windowing::MoveFocus(handle);
    }
    return previous;
}

#include "windowing/keyboard.h"

#include "windowing/focus.h"
#include "windowing/window_table.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace windowing {

namespace {

constexpr BYTE kDown = 0x80;
constexpr BYTE kToggled = 0x01;

using Keys = std::array<BYTE, 256>; // as SetKeyboardState takes them

Keys& AllKeys() {
    static Keys keys{};
    return keys;
}

void SetDown(int code, bool down) {
    BYTE& key = AllKeys()[static_cast<std::size_t>(code)];
    const bool before = (key & kDown) != 0;
    const BYTE toggled = down && !before ? static_cast<BYTE>(key ^ kToggled) : key;
    key = static_cast<BYTE>((toggled & kToggled) | (down ? kDown : 0));
}

bool IsCharacter(UINT message) {
    return message == WM_CHAR || message == WM_SYSCHAR;
}

bool IsRelease(UINT message) {
    return message == WM_KEYUP || message == WM_SYSKEYUP;
}

// A capture takes the keys too: a list that is open but never takes the focus is worked with the
// arrow keys like a menu. Without a focus they go to the window that is active.
HWND TargetOf(const KeyInput& input) {
    if (IsCharacter(input.message)) {
        return input.target;
    }
    const HWND captured = GetCapture();
    if (captured != nullptr) {
        return captured;
    }
    return GetFocus() != nullptr ? GetFocus() : input.source;
}

LPARAM FactsOf(const KeyInput& input) {
    constexpr DWORD kOnce = 1;
    constexpr DWORD kWasDown = 1U << 30U;
    constexpr DWORD kGoesUp = 1U << 31U;
    DWORD facts = kOnce | static_cast<DWORD>(input.scanCode) << 16U;
    facts |= input.repeated || IsRelease(input.message) ? kWasDown : 0;
    facts |= IsRelease(input.message) ? kGoesUp : 0;
    return static_cast<LPARAM>(facts);
}

} // namespace

std::optional<MSG> MessageFor(const KeyInput& input) {
    const std::shared_ptr<Window> window = Find(TargetOf(input));
    if (window == nullptr) {
        return std::nullopt;
    }
    return MSG{window->handle, input.message, input.code, FactsOf(input), input.timeMs, {}};
}

KeyInput CharacterOf(const KeyInput& key, char16_t unit, HWND target) {
    KeyInput character = key;
    character.message = key.message == WM_SYSKEYDOWN ? WM_SYSCHAR : WM_CHAR;
    character.code = unit;
    character.target = target;
    character.text.clear();
    return character;
}

void KeyMessageFetched(const KeyInput& input) {
    if (IsCharacter(input.message)) {
        return;
    }
    SetDown(VK_SHIFT, input.shift);
    SetDown(VK_CONTROL, input.control);
    SetDown(VK_MENU, input.alt);
    SetDown(input.code & 0xFF, !IsRelease(input.message));
}

void NoteModifiers(const PointerInput& input) {
    if (input.message == WM_MOUSELEAVE) {
        return;
    }
    SetDown(VK_SHIFT, (input.keys & MK_SHIFT) != 0);
    SetDown(VK_CONTROL, (input.keys & MK_CONTROL) != 0);
}

} // namespace windowing

SHORT GetKeyState(int virtualKey) {
    const BYTE key = windowing::AllKeys()[static_cast<std::size_t>(virtualKey & 0xFF)];
    const unsigned state = ((key & windowing::kDown) != 0 ? 0x8000U : 0U) |
                           ((key & windowing::kToggled) != 0 ? 1U : 0U);
    return static_cast<SHORT>(state);
}

BOOL SetKeyboardState(LPBYTE keys) {
    if (keys == nullptr) {
        return FALSE;
    }
    std::copy_n(keys, windowing::AllKeys().size(), windowing::AllKeys().begin());
    return TRUE;
}

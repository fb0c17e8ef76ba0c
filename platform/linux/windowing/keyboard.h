// The keyboard: which keys are down, and to which window a key goes. Knows nothing of Qt's events;
// surfaces report keys by their Windows codes.
#pragma once

#include "windowing/pointer.h"

#include <windows.h>

#include <optional>
#include <string>

namespace windowing {

struct KeyInput {
    HWND source = nullptr; // the top-level window that the system told of it
    HWND target = nullptr; // a character's; keys find theirs when they are fetched
    UINT message = 0;      // WM_KEYDOWN, WM_KEYUP, WM_CHAR and the same of WM_SYS...
    WORD code = 0;         // VK_..., or a character's UTF-16 unit
    std::u16string text;   // what a key that goes down writes
    bool shift = false;    // held when it happened, apart from the key itself
    bool control = false;
    bool alt = false;
    bool repeated = false; // the key is held
    BYTE scanCode = 0;
    DWORD timeMs = 0;
};

// All of this is of the thread that has the windows alone.

// Nothing when there is no window that it could go to.
std::optional<MSG> MessageFor(const KeyInput& input);
// A unit of the key's text.
KeyInput CharacterOf(const KeyInput& key, char16_t unit, HWND target);

// GetKeyState tells of the input that was fetched last.
void KeyMessageFetched(const KeyInput& input);
void NoteModifiers(const PointerInput& input);

} // namespace windowing

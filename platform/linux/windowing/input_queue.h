// What the user does, in the order in which it happened, until somebody fetches it.
#pragma once

#include "windowing/keyboard.h"
#include "windowing/message_queue.h"
#include "windowing/pointer.h"

#include <optional>

namespace windowing {

// The user, or the window manager, has made the top-level window the active one, or another
// program's.
struct ActivationInput {
    HWND window = nullptr;
    bool active = false;
};

// All of this is of the thread that has the windows alone.

// Moves that nobody has fetched yet are one.
void PutPointerInput(const PointerInput& input);
void PutKeyInput(KeyInput input);
void PutActivation(const ActivationInput& input);

// A change of activation is carried out on the way.
std::optional<MSG> TakeInput(const MessageFilter& filter, bool remove);

} // namespace windowing

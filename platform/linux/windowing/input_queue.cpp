#include "windowing/input_queue.h"

#include "process/never_destroyed.h"
#include "windowing/focus.h"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <iterator>
#include <memory>
#include <utility>
#include <variant>
#include <vector>

namespace windowing {

namespace {

using Input = std::variant<PointerInput, KeyInput, ActivationInput>;
using Inputs = std::deque<Input>;

Inputs& AllInputs() {
    static Inputs& inputs = process::NeverDestroyed<Inputs>();
    return inputs;
}

bool IsSameMove(const PointerInput& one, const PointerInput& other) {
    return one.message == WM_MOUSEMOVE && other.message == WM_MOUSEMOVE &&
           one.source == other.source && one.keys == other.keys;
}

// What was done before it comes before it. Its handlers may fetch messages themselves, so it is out
// of the queue before it is carried out.
void CarryOutActivationsInFront() {
    auto& inputs = AllInputs();
    while (!inputs.empty() && std::holds_alternative<ActivationInput>(inputs.front())) {
        const ActivationInput change = std::get<ActivationInput>(inputs.front());
        inputs.pop_front();
        if (change.active) {
            Activate(change.window);
        } else {
            Deactivate(change.window);
        }
    }
}

std::optional<MSG> MessageForAny(const Input& input) {
    if (const auto* pointer = std::get_if<PointerInput>(&input)) {
        return MessageFor(*pointer);
    }
    if (const auto* key = std::get_if<KeyInput>(&input)) {
        return MessageFor(*key);
    }
    return std::nullopt;
}

// Characters come right after the key that made them, and go where that went.
void ReplaceByCharacters(std::size_t index, const KeyInput& key, HWND window) {
    auto& inputs = AllInputs();
    const auto at = inputs.erase(inputs.begin() + static_cast<std::ptrdiff_t>(index));
    std::vector<Input> characters;
    std::transform(key.text.begin(), key.text.end(), std::back_inserter(characters),
                   [&](char16_t unit) { return CharacterOf(key, unit, window); });
    inputs.insert(at, characters.begin(), characters.end());
}

void Fetch(std::size_t index, const MSG& message) {
    const Input input = AllInputs()[index];
    if (const auto* key = std::get_if<KeyInput>(&input)) {
        ReplaceByCharacters(index, *key, message.hwnd);
        KeyMessageFetched(*key);
        return;
    }
    const auto& pointer = std::get<PointerInput>(input);
    const bool staysForAnother =
        message.message == WM_MOUSELEAVE && pointer.message != WM_MOUSELEAVE;
    if (!staysForAnother) {
        AllInputs().erase(AllInputs().begin() + static_cast<std::ptrdiff_t>(index));
        NoteModifiers(pointer);
    }
    PointerMessageFetched(message);
}

} // namespace

void PutPointerInput(const PointerInput& input) {
    if (input.message != WM_MOUSELEAVE) {
        SetPointerPosition(input.onScreen);
    }
    auto& inputs = AllInputs();
    auto* last = inputs.empty() ? nullptr : std::get_if<PointerInput>(&inputs.back());
    if (last != nullptr && IsSameMove(*last, input)) {
        *last = input;
    } else {
        inputs.emplace_back(input);
    }
}

void PutKeyInput(KeyInput input) {
    AllInputs().emplace_back(std::move(input));
}

void PutActivation(const ActivationInput& input) {
    AllInputs().emplace_back(input);
}

std::optional<MSG> TakeInput(const MessageFilter& filter, bool remove) {
    auto& inputs = AllInputs();
    CarryOutActivationsInFront();
    for (std::size_t index = 0; index < inputs.size();) {
        const Input input = inputs[index];
        if (std::holds_alternative<ActivationInput>(input)) {
            ++index; // something that is not asked for comes before it
            continue;
        }
        const std::optional<MSG> message = MessageForAny(input);
        if (!message.has_value()) {
            inputs.erase(inputs.begin() + static_cast<std::ptrdiff_t>(index));
            CarryOutActivationsInFront();
            continue;
        }
        if (!filter.Takes(message->hwnd, message->message)) {
            ++index;
            continue;
        }
        if (remove) {
            Fetch(index, *message);
        }
        return message;
    }
    return std::nullopt;
}

} // namespace windowing

// Starting a thread where the system may refuse one.
#pragma once

#include <system_error>
#include <thread>
#include <utility>

// Runs `body` on a new thread that `thread` then holds. False, and `thread` unchanged, when the
// system cannot start one.
template <typename Body>
bool StartThread(std::thread& thread, Body body) {
    try {
        thread = std::thread(std::move(body));
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

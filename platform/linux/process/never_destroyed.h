// Objects that live until the process is gone.
#pragma once

#include <memory>

namespace process {

// Makes an object that nothing destroys, so that threads, handles and windows which outlive main()
// can still use it. For a static of the function that hands it out.
template <typename T>
T& NeverDestroyed() {
    return *std::make_unique<T>().release();
}

} // namespace process

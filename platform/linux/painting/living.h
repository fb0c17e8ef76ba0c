// Objects by handle, so that a handle that is not one, or is one no longer, is found out.
#pragma once

#include <memory>
#include <unordered_map>
#include <utility>

namespace painting {

template <typename Handle, typename Object>
class Living {
public:
    Handle Add(std::unique_ptr<Object> object) {
        // A handle is nothing but a number that tells its object from others.
        const auto handle = reinterpret_cast<Handle>(object.get());
        objects_.emplace(handle, std::move(object));
        return handle;
    }
    Object* Find(Handle handle) const {
        const auto found = objects_.find(handle);
        return found == objects_.end() ? nullptr : found->second.get();
    }
    bool Remove(Handle handle) { return objects_.erase(handle) != 0; }

private:
    std::unordered_map<Handle, std::unique_ptr<Object>> objects_;
};

} // namespace painting

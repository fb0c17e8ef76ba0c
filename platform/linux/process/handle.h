// What stands behind the handles that CloseHandle closes. The rooms derive their kinds from it; a
// handle holds its object until it is closed.
#pragma once

#include <windows.h>

#include <memory>

namespace process {

enum class HandleKind { Event, Mutex, File };

class HandleObject {
public:
    HandleObject(const HandleObject&) = delete;
    HandleObject& operator=(const HandleObject&) = delete;
    virtual ~HandleObject() = default;

    HandleKind Kind() const { return kind_; }

protected:
    explicit HandleObject(HandleKind kind) : kind_(kind) {}

private:
    const HandleKind kind_;
};

// The caller of the Windows function owns the handle from here on.
inline HANDLE MakeHandle(std::unique_ptr<HandleObject> object) {
    return object.release();
}

// Null for a null or invalid handle.
inline HandleObject* ObjectOf(HANDLE handle) {
    return handle == INVALID_HANDLE_VALUE ? nullptr : static_cast<HandleObject*>(handle);
}

// Null for a handle of another kind too. `Object` names its kind as `kKind`.
template <typename Object>
Object* ObjectOf(HANDLE handle) {
    HandleObject* const object = ObjectOf(handle);
    return object != nullptr && object->Kind() == Object::kKind ? static_cast<Object*>(object)
                                                                : nullptr;
}

} // namespace process

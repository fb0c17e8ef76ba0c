// What every COM object of this room is made of: a count, one interface, an owner type. Knows
// nothing of sound.
#pragma once

#include <unknwn.h>

#include <atomic>
#include <memory>
#include <utility>

namespace audio {

struct ReleaseReference {
    void operator()(IUnknown* object) const { object->Release(); }
};

// Holds one reference and gives it back.
template <typename Interface>
using ComOwner = std::unique_ptr<Interface, ReleaseReference>;

// An object with one interface. It begins with a count of 1, which is its maker's; any thread may
// take and give back references, and the last Release deletes it on that thread.
template <typename Interface>
class ComObject : public Interface {
public:
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;
    virtual ~ComObject() = default;

    HRESULT QueryInterface(REFIID iid, void** object) final {
        if (object == nullptr) {
            return E_POINTER;
        }
        *object = nullptr;
        if (iid != __uuidof(Interface) && iid != __uuidof(IUnknown)) {
            return E_NOINTERFACE;
        }
        AddRef();
        *object = static_cast<Interface*>(this);
        return S_OK;
    }

    ULONG AddRef() final { return references_.fetch_add(1, std::memory_order_relaxed) + 1; }

    ULONG Release() final {
        // Release: what this thread did to the object comes before the deletion. Acquire: the
        // deleting thread sees what all others did.
        const ULONG left = references_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0) {
            const std::unique_ptr<ComObject> last(this);
        }
        return left;
    }

protected:
    ComObject() = default;

private:
    std::atomic<ULONG> references_{1};
};

// A new object of class `Object`, with its one reference.
template <typename Object, typename... Arguments>
ComOwner<Object> MakeObject(Arguments&&... arguments) {
    return ComOwner<Object>(
        std::make_unique<Object>(std::forward<Arguments>(arguments)...).release());
}

} // namespace audio

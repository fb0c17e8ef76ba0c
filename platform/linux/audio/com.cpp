// COM's base services: class objects, task memory, property values. Knows of the sound classes
// only how the enumerator is made.
#include "audio/com_object.h"
#include "audio/device_enumerator.h"
#include "process/never_destroyed.h"

#include <objbase.h>
#include <propidl.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <vector>

namespace {

struct Registration {
    DWORD number;
    CLSID clsid;
    audio::ComOwner<IClassFactory> factory;
};

// The factories of CoRegisterClassObject. Any thread calls any operation.
class ClassTable {
public:
    DWORD Add(REFCLSID clsid, audio::ComOwner<IClassFactory> factory) {
        const std::lock_guard lock(mutex_);
        registrations_.push_back({++lastNumber_, clsid, std::move(factory)});
        return lastNumber_;
    }

    // Out of the table; null when the number is unknown.
    audio::ComOwner<IClassFactory> Take(DWORD number) {
        const std::lock_guard lock(mutex_);
        const auto found =
            std::find_if(registrations_.begin(), registrations_.end(),
                         [number](const Registration& entry) { return entry.number == number; });
        if (found == registrations_.end()) {
            return nullptr;
        }
        audio::ComOwner<IClassFactory> factory = std::move(found->factory);
        registrations_.erase(found);
        return factory;
    }

    // A reference to the factory registered last for the class, or null.
    audio::ComOwner<IClassFactory> Find(REFCLSID clsid) {
        const std::lock_guard lock(mutex_);
        const auto found =
            std::find_if(registrations_.rbegin(), registrations_.rend(),
                         [&clsid](const Registration& entry) { return entry.clsid == clsid; });
        if (found == registrations_.rend()) {
            return nullptr;
        }
        found->factory->AddRef();
        return audio::ComOwner<IClassFactory>(found->factory.get());
    }

private:
    std::mutex mutex_; // guards both members; no factory is asked to do anything but count under it
    std::vector<Registration> registrations_;
    DWORD lastNumber_ = 0;
};

// Made at first use and never destroyed: class objects may outlive the static destructors.
ClassTable& Classes() {
    static ClassTable& table = process::NeverDestroyed<ClassTable>();
    return table;
}

} // namespace

HRESULT CoInitializeEx(LPVOID /*reserved*/, DWORD /*mode*/) {
    return S_OK;
}

void CoUninitialize() {}

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD /*context*/, REFIID iid,
                         LPVOID* object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (const auto factory = Classes().Find(clsid)) {
        return factory->CreateInstance(outer, iid, object);
    }
    if (clsid != __uuidof(MMDeviceEnumerator)) {
        return REGDB_E_CLASSNOTREG;
    }
    if (outer != nullptr) {
        return CLASS_E_NOAGGREGATION;
    }
    return audio::MakeDeviceEnumerator()->QueryInterface(iid, object);
}

HRESULT CoRegisterClassObject(REFCLSID clsid, IUnknown* factory, DWORD /*context*/, DWORD /*flags*/,
                              LPDWORD registration) {
    if (factory == nullptr || registration == nullptr) {
        return E_INVALIDARG;
    }
    *registration = 0;
    void* found = nullptr;
    if (const HRESULT hr = factory->QueryInterface(__uuidof(IClassFactory), &found); FAILED(hr)) {
        return hr;
    }
    *registration =
        Classes().Add(clsid, audio::ComOwner<IClassFactory>(static_cast<IClassFactory*>(found)));
    return S_OK;
}

HRESULT CoRevokeClassObject(DWORD registration) {
    return Classes().Take(registration) != nullptr ? S_OK : E_INVALIDARG;
}

LPVOID CoTaskMemAlloc(std::size_t bytes) {
    return std::malloc(bytes); // NOLINT(cppcoreguidelines-owning-memory): who gets it frees it
}

void CoTaskMemFree(LPVOID memory) {
    std::free(memory);
}

HRESULT PropVariantClear(PROPVARIANT* value) {
    if (value == nullptr) {
        return S_OK;
    }
    if (value->vt == VT_LPWSTR) {
        CoTaskMemFree(value->pwszVal);
    }
    PropVariantInit(value);
    return S_OK;
}

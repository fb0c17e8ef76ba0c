// The enumerator, its collections, the devices and their one property. Objects here do not change
// once they are made, so any thread may use them; what they know of a device is what the server
// said when it was asked for.
#include "audio/device_enumerator.h"

#include "audio/audio_client.h"
#include "audio/endpoint.h"
#include "audio/server_connection.h"
#include "text/utf.h"

#include <audioclient.h>
#include <functiondiscoverykeys_devpkey.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <utility>

namespace audio {

namespace {

// A copy with its terminating zero in task memory; null when there is none left.
LPWSTR TaskMemoryText(const std::u16string& text) {
    const std::size_t bytes = (text.size() + 1) * sizeof(WCHAR);
    void* const copy = CoTaskMemAlloc(bytes);
    if (copy != nullptr) {
        std::memcpy(copy, text.c_str(), bytes);
    }
    return static_cast<LPWSTR>(copy);
}

class PropertyStore final : public ComObject<IPropertyStore> {
public:
    explicit PropertyStore(std::u16string friendlyName) : friendlyName_(std::move(friendlyName)) {}

    // A property that the device lacks is an empty value, not a failure.
    HRESULT GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override {
        if (value == nullptr) {
            return E_POINTER;
        }
        PropVariantInit(value);
        if (key.fmtid != PKEY_Device_FriendlyName.fmtid ||
            key.pid != PKEY_Device_FriendlyName.pid) {
            return S_OK;
        }
        value->pwszVal = TaskMemoryText(friendlyName_);
        if (value->pwszVal == nullptr) {
            return E_OUTOFMEMORY;
        }
        value->vt = VT_LPWSTR;
        return S_OK;
    }

private:
    const std::u16string friendlyName_;
};

class Device final : public ComObject<IMMDevice> {
public:
    Device(std::shared_ptr<ServerConnection> connection, Endpoint endpoint)
        : connection_(std::move(connection)), endpoint_(std::move(endpoint)) {}

    HRESULT Activate(REFIID iid, DWORD /*context*/, PROPVARIANT* /*parameters*/,
                     void** object) override {
        return MakeAudioClient(connection_, endpoint_)->QueryInterface(iid, object);
    }

    HRESULT OpenPropertyStore(DWORD access, IPropertyStore** store) override {
        if (store == nullptr) {
            return E_POINTER;
        }
        *store = nullptr;
        if (access != STGM_READ) {
            return E_INVALIDARG;
        }
        *store = MakeObject<PropertyStore>(text::ToWide(endpoint_.description)).release();
        return S_OK;
    }

    HRESULT GetId(LPWSTR* id) override {
        if (id == nullptr) {
            return E_POINTER;
        }
        *id = TaskMemoryText(EndpointId(endpoint_));
        return *id != nullptr ? S_OK : E_OUTOFMEMORY;
    }

private:
    const std::shared_ptr<ServerConnection> connection_;
    const Endpoint endpoint_;
};

class DeviceCollection final : public ComObject<IMMDeviceCollection> {
public:
    DeviceCollection(std::shared_ptr<ServerConnection> connection, std::vector<Endpoint> endpoints)
        : connection_(std::move(connection)), endpoints_(std::move(endpoints)) {}

    HRESULT GetCount(UINT* count) override {
        if (count == nullptr) {
            return E_POINTER;
        }
        *count = static_cast<UINT>(endpoints_.size());
        return S_OK;
    }

    HRESULT Item(UINT index, IMMDevice** device) override {
        if (device == nullptr) {
            return E_POINTER;
        }
        *device = nullptr;
        if (index >= endpoints_.size()) {
            return E_INVALIDARG;
        }
        *device = MakeObject<Device>(connection_, endpoints_[index]).release();
        return S_OK;
    }

private:
    const std::shared_ptr<ServerConnection> connection_;
    const std::vector<Endpoint> endpoints_;
};

bool IsFlow(EDataFlow flow) {
    return flow == eRender || flow == eCapture;
}

bool IsActive(const Endpoint& endpoint) {
    return endpoint.pluggedIn;
}

class DeviceEnumerator final : public ComObject<IMMDeviceEnumerator> {
public:
    explicit DeviceEnumerator(std::shared_ptr<ServerConnection> connection)
        : connection_(std::move(connection)) {}

    HRESULT EnumAudioEndpoints(EDataFlow flow, DWORD states,
                               IMMDeviceCollection** devices) override {
        if (devices == nullptr) {
            return E_POINTER;
        }
        *devices = nullptr;
        if (!IsFlow(flow) || (states & DEVICE_STATE_ACTIVE) == 0) {
            return E_INVALIDARG;
        }
        auto endpoints = List(flow);
        if (!endpoints) {
            return AUDCLNT_E_SERVICE_NOT_RUNNING;
        }
        std::erase_if(*endpoints, std::not_fn(IsActive));
        *devices = MakeObject<DeviceCollection>(connection_, std::move(*endpoints)).release();
        return S_OK;
    }

    // The server's default; the first active endpoint when that is none of ours, such as a monitor.
    HRESULT GetDefaultAudioEndpoint(EDataFlow flow, ERole /*role*/, IMMDevice** device) override {
        if (device == nullptr) {
            return E_POINTER;
        }
        *device = nullptr;
        if (!IsFlow(flow)) {
            return E_INVALIDARG;
        }
        auto endpoints = List(flow);
        const auto name = connection_ ? connection_->DefaultName(flow) : std::nullopt;
        if (!endpoints || !name) {
            return AUDCLNT_E_SERVICE_NOT_RUNNING;
        }
        auto chosen = Find(*endpoints, *name);
        if (chosen == endpoints->end()) {
            chosen = std::find_if(endpoints->begin(), endpoints->end(), IsActive);
        }
        if (chosen == endpoints->end()) {
            return E_NOTFOUND;
        }
        *device = MakeObject<Device>(connection_, std::move(*chosen)).release();
        return S_OK;
    }

    HRESULT GetDevice(LPCWSTR id, IMMDevice** device) override {
        if (id == nullptr || device == nullptr) {
            return E_POINTER;
        }
        *device = nullptr;
        if (connection_ == nullptr) {
            return AUDCLNT_E_SERVICE_NOT_RUNNING;
        }
        EDataFlow flow = eRender;
        std::string name;
        if (!ParseEndpointId(id, flow, name)) {
            return E_NOTFOUND;
        }
        // Looked up in the list rather than asked for by name: the server takes numbers and words
        // like its "default" for names too.
        auto endpoints = List(flow);
        if (!endpoints) {
            return AUDCLNT_E_SERVICE_NOT_RUNNING;
        }
        const auto found = Find(*endpoints, name);
        if (found == endpoints->end()) {
            return E_NOTFOUND;
        }
        *device = MakeObject<Device>(connection_, std::move(*found)).release();
        return S_OK;
    }

private:
    std::optional<std::vector<Endpoint>> List(EDataFlow flow) const {
        return connection_ ? connection_->ListEndpoints(flow) : std::nullopt;
    }

    static std::vector<Endpoint>::iterator Find(std::vector<Endpoint>& endpoints,
                                                const std::string& name) {
        return std::find_if(endpoints.begin(), endpoints.end(),
                            [&name](const Endpoint& endpoint) { return endpoint.name == name; });
    }

    const std::shared_ptr<ServerConnection> connection_; // null without a server
};

} // namespace

ComOwner<IMMDeviceEnumerator> MakeDeviceEnumerator() {
    return MakeObject<DeviceEnumerator>(ServerConnection::Open());
}

} // namespace audio

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
    Device(std::shared_ptr<ServerConnection> connection, Endpoint endpoint, std::u16string id)
        : connection_(std::move(connection)), endpoint_(std::move(endpoint)), id_(std::move(id)) {}

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
        *id = TaskMemoryText(id_);
        return *id != nullptr ? S_OK : E_OUTOFMEMORY;
    }

private:
    const std::shared_ptr<ServerConnection> connection_;
    const Endpoint endpoint_;
    const std::u16string id_;
};

ComOwner<IMMDevice> MakeDevice(const std::shared_ptr<ServerConnection>& connection,
                               const Endpoint& endpoint) {
    return MakeObject<Device>(connection, endpoint, EndpointId(endpoint.flow, endpoint.name));
}

// The device that is whatever the server's default is; null when there is no device at all.
ComOwner<IMMDevice> MakeDefaultDevice(const std::shared_ptr<ServerConnection>& connection,
                                      const Devices& devices, EDataFlow flow) {
    const Endpoint* const now = devices.Default(flow);
    if (now == nullptr) {
        return nullptr;
    }
    Endpoint following = *now;
    following.description = kDefaultDescription;
    following.followsDefault = true;
    return MakeObject<Device>(connection, std::move(following), EndpointId(flow, kDefaultName));
}

class DeviceCollection final : public ComObject<IMMDeviceCollection> {
public:
    explicit DeviceCollection(std::vector<ComOwner<IMMDevice>> devices)
        : devices_(std::move(devices)) {}

    HRESULT GetCount(UINT* count) override {
        if (count == nullptr) {
            return E_POINTER;
        }
        *count = static_cast<UINT>(devices_.size());
        return S_OK;
    }

    HRESULT Item(UINT index, IMMDevice** device) override {
        if (device == nullptr) {
            return E_POINTER;
        }
        *device = nullptr;
        if (index >= devices_.size()) {
            return E_INVALIDARG;
        }
        devices_[index]->AddRef();
        *device = devices_[index].get();
        return S_OK;
    }

private:
    const std::vector<ComOwner<IMMDevice>> devices_;
};

bool IsFlow(EDataFlow flow) {
    return flow == eRender || flow == eCapture;
}

class DeviceEnumerator final : public ComObject<IMMDeviceEnumerator> {
public:
    explicit DeviceEnumerator(std::shared_ptr<ServerConnection> connection)
        : connection_(std::move(connection)) {}

    // "Default" first, then the device that this is now, so that whoever takes the first one hears
    // what plays; then the others as the server has them. A window may be waiting for the list: a
    // server that does not answer soon has what it had.
    HRESULT EnumAudioEndpoints(EDataFlow flow, DWORD states,
                               IMMDeviceCollection** collection) override {
        if (collection == nullptr) {
            return E_POINTER;
        }
        *collection = nullptr;
        if (!IsFlow(flow) || (states & DEVICE_STATE_ACTIVE) == 0) {
            return E_INVALIDARG;
        }
        auto devices = connection_->AskForDevices(ServerConnection::kShortLimit);
        if (!devices) {
            devices = connection_->LastDevices();
        }
        if (!devices) {
            return AUDCLNT_E_SERVICE_NOT_RUNNING;
        }
        *collection = MakeObject<DeviceCollection>(Listed(*devices, flow)).release();
        return S_OK;
    }

    // Streams of this device go on with another one when the default changes.
    HRESULT GetDefaultAudioEndpoint(EDataFlow flow, ERole /*role*/, IMMDevice** device) override {
        if (device == nullptr) {
            return E_POINTER;
        }
        *device = nullptr;
        if (!IsFlow(flow)) {
            return E_INVALIDARG;
        }
        return Found(flow, kDefaultName, device);
    }

    HRESULT GetDevice(LPCWSTR id, IMMDevice** device) override {
        if (id == nullptr || device == nullptr) {
            return E_POINTER;
        }
        *device = nullptr;
        EDataFlow flow = eRender;
        std::string name;
        if (!ParseEndpointId(id, flow, name)) {
            return E_NOTFOUND;
        }
        return Found(flow, name, device);
    }

private:
    std::vector<ComOwner<IMMDevice>> Listed(const Devices& devices, EDataFlow flow) const {
        std::vector<Endpoint> endpoints = devices.Of(flow);
        std::erase_if(endpoints, [](const Endpoint& each) { return !each.pluggedIn; });
        NumberEqualDescriptions(endpoints);
        std::vector<ComOwner<IMMDevice>> listed;
        const Endpoint* const first = devices.Default(flow);
        if (endpoints.empty() || first == nullptr) {
            return listed;
        }
        std::stable_partition(endpoints.begin(), endpoints.end(),
                              [first](const Endpoint& each) { return each.name == first->name; });
        listed.push_back(MakeDefaultDevice(connection_, devices, flow));
        for (const Endpoint& endpoint : endpoints) {
            listed.push_back(MakeDevice(connection_, endpoint));
        }
        return listed;
    }

    // Looked up in the list rather than asked for by name: the server takes numbers and words like
    // its "default" for names too.
    HRESULT Found(EDataFlow flow, std::string_view name, IMMDevice** device) const {
        const auto devices = connection_->AskForDevices(ServerConnection::kAnswerLimit);
        if (!devices) {
            return AUDCLNT_E_SERVICE_NOT_RUNNING;
        }
        if (name == kDefaultName) {
            *device = MakeDefaultDevice(connection_, *devices, flow).release();
            return *device != nullptr ? S_OK : E_NOTFOUND;
        }
        const std::vector<Endpoint>& endpoints = devices->Of(flow);
        const auto found =
            std::find_if(endpoints.begin(), endpoints.end(),
                         [name](const Endpoint& endpoint) { return endpoint.name == name; });
        if (found == endpoints.end()) {
            return E_NOTFOUND;
        }
        *device = MakeDevice(connection_, *found).release();
        return S_OK;
    }

    const std::shared_ptr<ServerConnection> connection_;
};

} // namespace

ComOwner<IMMDeviceEnumerator> MakeDeviceEnumerator() {
    return MakeObject<DeviceEnumerator>(ServerConnection::Current());
}

} // namespace audio

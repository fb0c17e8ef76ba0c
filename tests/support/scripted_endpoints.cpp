#include "scripted_endpoints.h"

#include <initguid.h>
#include <objbase.h>
#include <functiondiscoverykeys_devpkey.h>
#include <ks.h>
#include <ksmedia.h>
#include <propsys.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

// Named by methods that only Windows' interfaces have.
struct IMMNotificationClient;

namespace {
std::atomic<int> liveObjects{0};
} // namespace

// Reference counting for an object of one interface. Interfaces have more methods on Windows than
// the program uses; the classes below have them all, without `override`.
template <typename Interface>
class ScriptedObject : public Interface {
public:
    ScriptedObject() { ++liveObjects; }
    virtual ~ScriptedObject() { --liveObjects; }
    ScriptedObject(const ScriptedObject&) = delete;
    ScriptedObject& operator=(const ScriptedObject&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (iid == __uuidof(Interface) || iid == __uuidof(IUnknown)) {
            *object = static_cast<Interface*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --references_;
        if (left == 0) {
            delete this;
        }
        return left;
    }

private:
    std::atomic<ULONG> references_{1};
};

class ScriptedReader final : public ScriptedObject<IAudioCaptureClient> {
public:
    explicit ScriptedReader(ScriptedEndpoint& endpoint) : endpoint_(endpoint) {}

    HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32* frames) override {
        const HRESULT result = endpoint_.Called("GetNextPacketSize");
        if (FAILED(result)) {
            return result;
        }
        const std::lock_guard lock(endpoint_.mutex_);
        // A packet without frames still shows up as one to fetch: drivers deliver such.
        *frames = endpoint_.packets_.empty() ? 0 : std::max(1u, endpoint_.packets_.front().frames);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64*,
                                        UINT64*) override {
        const HRESULT result = endpoint_.Called("GetBuffer");
        if (FAILED(result)) {
            return result;
        }
        const std::lock_guard lock(endpoint_.mutex_);
        held_ = endpoint_.packets_.front();
        *data = held_.bytes.data();
        *frames = held_.frames;
        *flags = held_.flags;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames) override {
        endpoint_.Called("ReleaseBuffer");
        const std::lock_guard lock(endpoint_.mutex_);
        if (frames != held_.frames || endpoint_.packets_.empty()) {
            endpoint_.calls_.push_back("ReleaseBuffer(wrong)");
            return E_INVALIDARG;
        }
        endpoint_.packets_.pop_front();
        return S_OK;
    }

private:
    ScriptedEndpoint& endpoint_;
    ScriptedPacket held_;
};

class ScriptedClient final : public ScriptedObject<IAudioClient> {
public:
    explicit ScriptedClient(ScriptedEndpoint& endpoint) : endpoint_(endpoint) {}

    HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX** format) override {
        const HRESULT result = endpoint_.Called("GetMixFormat");
        if (FAILED(result)) {
            return result;
        }
        *format = static_cast<WAVEFORMATEX*>(CoTaskMemAlloc(sizeof endpoint_.format));
        std::memcpy(*format, &endpoint_.format, sizeof endpoint_.format);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE mode, DWORD flags,
                                         REFERENCE_TIME duration, REFERENCE_TIME periodicity,
                                         const WAVEFORMATEX* format, const GUID* session) override {
        const bool asIs = std::memcmp(format, &endpoint_.format, sizeof endpoint_.format) == 0;
        return endpoint_.Called(mode == AUDCLNT_SHAREMODE_SHARED && duration == 10'000'000 &&
                                        periodicity == 0 && asIs && session == nullptr
                                    ? "Initialize(flags=" + std::to_string(flags) + ")"
                                    : "Initialize(other)");
    }
    HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE event) override {
        const HRESULT result = endpoint_.Called("SetEventHandle");
        const std::lock_guard lock(endpoint_.mutex_);
        endpoint_.event_ = SUCCEEDED(result) ? event : nullptr;
        return result;
    }
    HRESULT STDMETHODCALLTYPE GetService(REFIID iid, void** object) override {
        const HRESULT result = endpoint_.Called("GetService");
        if (FAILED(result)) {
            return result;
        }
        auto* reader = new ScriptedReader(endpoint_);
        const HRESULT found = reader->QueryInterface(iid, object);
        reader->Release();
        return found;
    }
    HRESULT STDMETHODCALLTYPE Start() override {
        const HRESULT result = endpoint_.Called("Start");
        if (SUCCEEDED(result)) {
            ++endpoint_.running_;
            started_ = true;
            const std::lock_guard lock(endpoint_.mutex_);
            if (endpoint_.event_ != nullptr && !endpoint_.packets_.empty()) {
                SetEvent(endpoint_.event_);
            }
        }
        return result;
    }
    HRESULT STDMETHODCALLTYPE Stop() override {
        if (started_) {
            --endpoint_.running_;
        }
        started_ = false;
        const std::lock_guard lock(endpoint_.mutex_);
        endpoint_.event_ = nullptr;
        endpoint_.calls_.push_back("Stop");
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32*) { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStreamLatency(REFERENCE_TIME*) { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetCurrentPadding(UINT32*) { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE IsFormatSupported(AUDCLNT_SHAREMODE, const WAVEFORMATEX*,
                                                WAVEFORMATEX**) {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetDevicePeriod(REFERENCE_TIME*, REFERENCE_TIME*) {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Reset() { return E_NOTIMPL; }

private:
    ScriptedEndpoint& endpoint_;
    bool started_ = false;
};

class ScriptedProperties final : public ScriptedObject<IPropertyStore> {
public:
    explicit ScriptedProperties(ScriptedEndpoint& endpoint) : endpoint_(endpoint) {}

    HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override {
        const HRESULT result = endpoint_.Called("GetValue");
        if (FAILED(result) || !(key.fmtid == PKEY_Device_FriendlyName.fmtid) ||
            key.pid != PKEY_Device_FriendlyName.pid) {
            return FAILED(result) ? result : E_INVALIDARG;
        }
        value->vt = endpoint_.nameType;
        if (endpoint_.nameType == VT_LPWSTR) {
            const std::size_t bytes = (endpoint_.name.size() + 1) * sizeof(WCHAR);
            value->pwszVal = static_cast<WCHAR*>(CoTaskMemAlloc(bytes));
            std::memcpy(value->pwszVal, endpoint_.name.c_str(), bytes);
        } else {
            value->ulVal = 7;
        }
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetCount(DWORD*) { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetAt(DWORD, PROPERTYKEY*) { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY, const PROPVARIANT&) { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Commit() { return E_NOTIMPL; }

private:
    ScriptedEndpoint& endpoint_;
};

class ScriptedDevice final : public ScriptedObject<IMMDevice> {
public:
    explicit ScriptedDevice(ScriptedEndpoint& endpoint) : endpoint_(endpoint) {}

    HRESULT STDMETHODCALLTYPE Activate(REFIID iid, DWORD, PROPVARIANT*, void** object) override {
        const HRESULT result = endpoint_.Called("Activate");
        if (FAILED(result)) {
            return result;
        }
        auto* client = new ScriptedClient(endpoint_);
        const HRESULT found = client->QueryInterface(iid, object);
        client->Release();
        return found;
    }
    HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD, IPropertyStore** store) override {
        const HRESULT result = endpoint_.Called("OpenPropertyStore");
        *store = SUCCEEDED(result) ? new ScriptedProperties(endpoint_) : nullptr;
        return result;
    }
    HRESULT STDMETHODCALLTYPE GetId(LPWSTR* id) override {
        const HRESULT result = endpoint_.Called("GetId");
        if (FAILED(result)) {
            return result;
        }
        const std::size_t bytes = (endpoint_.id.size() + 1) * sizeof(WCHAR);
        *id = static_cast<WCHAR*>(CoTaskMemAlloc(bytes));
        std::memcpy(*id, endpoint_.id.c_str(), bytes);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetState(DWORD*) { return E_NOTIMPL; }

private:
    ScriptedEndpoint& endpoint_;
};

class ScriptedCollection final : public ScriptedObject<IMMDeviceCollection> {
public:
    ScriptedCollection(const ScriptedEndpoints& scene, std::vector<ScriptedEndpoint*> endpoints)
        : scene_(scene), endpoints_(std::move(endpoints)) {}

    HRESULT STDMETHODCALLTYPE GetCount(UINT* count) override {
        *count = static_cast<UINT>(endpoints_.size());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Item(UINT index, IMMDevice** device) override {
        // The first one alone can be made to fail: the others must still be listed.
        if (index == 0 && FAILED(scene_.ResultOf("Item"))) {
            return scene_.ResultOf("Item");
        }
        *device = new ScriptedDevice(*endpoints_[index]);
        return S_OK;
    }

private:
    const ScriptedEndpoints& scene_;
    const std::vector<ScriptedEndpoint*> endpoints_;
};

class ScriptedEnumerator final : public ScriptedObject<IMMDeviceEnumerator> {
public:
    explicit ScriptedEnumerator(ScriptedEndpoints& scene) : scene_(scene) {}

    HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow flow, DWORD states,
                                                 IMMDeviceCollection** devices) override {
        if (FAILED(scene_.ResultOf("EnumAudioEndpoints"))) {
            return scene_.ResultOf("EnumAudioEndpoints");
        }
        std::vector<ScriptedEndpoint*> found;
        for (const auto& endpoint : scene_.endpoints) {
            if (endpoint->flow == flow && (endpoint->active || states != DEVICE_STATE_ACTIVE)) {
                found.push_back(endpoint.get());
            }
        }
        *devices = new ScriptedCollection(scene_, std::move(found));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow flow, ERole role,
                                                      IMMDevice** device) override {
        if (FAILED(scene_.ResultOf("GetDefaultAudioEndpoint"))) {
            return scene_.ResultOf("GetDefaultAudioEndpoint");
        }
        for (const auto& endpoint : scene_.endpoints) {
            if (endpoint->flow == flow && role == eConsole) {
                *device = new ScriptedDevice(*endpoint);
                return S_OK;
            }
        }
        return E_INVALIDARG;
    }
    HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR id, IMMDevice** device) override {
        if (FAILED(scene_.ResultOf("GetDevice"))) {
            return scene_.ResultOf("GetDevice");
        }
        for (const auto& endpoint : scene_.endpoints) {
            if (endpoint->id == id) {
                *device = new ScriptedDevice(*endpoint);
                return S_OK;
            }
        }
        return E_INVALIDARG;
    }

    HRESULT STDMETHODCALLTYPE RegisterEndpointNotificationCallback(IMMNotificationClient*) {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE UnregisterEndpointNotificationCallback(IMMNotificationClient*) {
        return E_NOTIMPL;
    }

private:
    ScriptedEndpoints& scene_;
};

class ScriptedFactory final : public ScriptedObject<IClassFactory> {
public:
    explicit ScriptedFactory(ScriptedEndpoints& scene) : scene_(scene) {}

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID iid, void** object) override {
        if (FAILED(scene_.ResultOf("CoCreateInstance"))) {
            return scene_.ResultOf("CoCreateInstance");
        }
        auto* enumerator = new ScriptedEnumerator(scene_);
        const HRESULT found = enumerator->QueryInterface(iid, object);
        enumerator->Release();
        return found;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

private:
    ScriptedEndpoints& scene_;
};

WAVEFORMATEXTENSIBLE MixFormat(std::uint32_t sampleRate, std::uint16_t channels, std::uint16_t bits,
                               bool isFloat) {
    WAVEFORMATEXTENSIBLE format = {};
    format.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    format.Format.nChannels = channels;
    format.Format.nSamplesPerSec = sampleRate;
    format.Format.wBitsPerSample = bits;
    format.Format.nBlockAlign = static_cast<WORD>(channels * bits / 8);
    format.Format.nAvgBytesPerSec = sampleRate * format.Format.nBlockAlign;
    format.Format.cbSize = sizeof format - sizeof format.Format;
    format.Samples.wValidBitsPerSample = bits;
    format.SubFormat = isFloat ? KSDATAFORMAT_SUBTYPE_IEEE_FLOAT : KSDATAFORMAT_SUBTYPE_PCM;
    return format;
}

ScriptedPacket Int16Packet(const std::vector<std::int16_t>& samples, std::uint16_t channels) {
    ScriptedPacket packet;
    packet.bytes.resize(samples.size() * sizeof samples[0]);
    std::memcpy(packet.bytes.data(), samples.data(), packet.bytes.size());
    packet.frames = static_cast<UINT32>(samples.size() / channels);
    return packet;
}

void ScriptedEndpoint::Fail(const std::string& call, HRESULT result) {
    const std::lock_guard lock(mutex_);
    failures_[call] = result;
    if (event_ != nullptr) {
        SetEvent(event_); // a device that goes away wakes its readers
    }
}

void ScriptedEndpoint::Hold(const std::string& call) {
    const std::lock_guard lock(mutex_);
    held_ = call;
}

void ScriptedEndpoint::LetGo() {
    const std::lock_guard lock(mutex_);
    held_.clear();
    letGo_.notify_all();
}

bool ScriptedEndpoint::WaitUntilHeld() const {
    return WaitUntil([this] { return waiting_ > 0; });
}

HRESULT ScriptedEndpoint::Called(const std::string& call) {
    std::unique_lock lock(mutex_);
    const std::string plain = call.substr(0, call.find('('));
    if (plain != "GetNextPacketSize" && plain != "GetBuffer" && plain != "ReleaseBuffer") {
        calls_.push_back(call);
    }
    if (plain == held_) {
        ++waiting_;
        letGo_.wait(lock, [&] { return plain != held_; });
        --waiting_;
    }
    const auto failure = failures_.find(plain);
    if (failure == failures_.end() || SUCCEEDED(failure->second)) {
        return S_OK;
    }
    ++failed_[plain];
    return failure->second;
}

void ScriptedEndpoint::Push(ScriptedPacket packet) {
    const std::lock_guard lock(mutex_);
    packets_.push_back(std::move(packet));
    if (event_ != nullptr) {
        SetEvent(event_);
    }
}

std::vector<std::string> ScriptedEndpoint::Calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

int ScriptedEndpoint::CallsOf(const std::string& call) const {
    const auto calls = Calls();
    return static_cast<int>(std::count(calls.begin(), calls.end(), call));
}

bool ScriptedEndpoint::WaitUntilDrained() const {
    return WaitUntil([this] { return packets_.empty(); });
}

bool ScriptedEndpoint::WaitUntilFailed(const std::string& call) const {
    return WaitUntil([&] { return failed_.count(call) > 0; });
}

template <typename Condition>
bool ScriptedEndpoint::WaitUntil(const Condition& condition) const {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < limit) {
        {
            const std::lock_guard lock(mutex_);
            if (condition()) {
                return true;
            }
        }
        std::this_thread::yield();
    }
    return false;
}

ScriptedEndpoints::ScriptedEndpoints() {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    auto* factory = new ScriptedFactory(*this);
    CoRegisterClassObject(__uuidof(MMDeviceEnumerator), factory, CLSCTX_INPROC_SERVER,
                          REGCLS_MULTIPLEUSE, &registration_);
    factory->Release();
}

ScriptedEndpoints::~ScriptedEndpoints() {
    CoRevokeClassObject(registration_);
    CoUninitialize();
}

ScriptedEndpoint& ScriptedEndpoints::Add(const WideString& id, EDataFlow flow) {
    endpoints.push_back(std::make_unique<ScriptedEndpoint>());
    endpoints.back()->id = id;
    endpoints.back()->flow = flow;
    return *endpoints.back();
}

void ScriptedEndpoints::Fail(const std::string& call, HRESULT result) {
    const std::lock_guard lock(mutex_);
    failures_[call] = result;
}

HRESULT ScriptedEndpoints::ResultOf(const std::string& call) const {
    const std::lock_guard lock(mutex_);
    const auto failure = failures_.find(call);
    return failure == failures_.end() ? S_OK : failure->second;
}

int ScriptedEndpoints::LiveObjects() {
    return liveObjects - 1;
} // but for the factory

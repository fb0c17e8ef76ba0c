// The list of endpoints. Every failure but that of the list itself leaves a field empty: a device
// that cannot tell its name can still be captured.
#include "audio_devices.h"

#include "audio_capture.h"
#include "owner.h"

#include <windows.h>
#include <initguid.h>
#include <audioclient.h>
#include <functiondiscoverykeys_devpkey.h>
#include <mmdeviceapi.h>
#include <propsys.h>

namespace {

WideString ReadId(IMMDevice& device) {
    CoTaskMemory<WCHAR> id;
    if (FAILED(device.GetId(id.Receive()))) {
        return {};
    }
    return id.get();
}

WideString ReadFriendlyName(IMMDevice& device) {
    ComRef<IPropertyStore> store;
    if (FAILED(device.OpenPropertyStore(STGM_READ, store.Receive()))) {
        return {};
    }
    PROPVARIANT value;
    PropVariantInit(&value);
    WideString name;
    if (SUCCEEDED(store->GetValue(PKEY_Device_FriendlyName, &value)) && value.vt == VT_LPWSTR &&
        value.pwszVal != nullptr) {
        name = value.pwszVal;
    }
    PropVariantClear(&value);
    return name;
}

void ReadMixFormat(IMMDevice& device, AudioDeviceInfo& info) {
    ComRef<IAudioClient> client; // for its format only, never initialised
    if (FAILED(
            device.Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, client.ReceiveVoid()))) {
        return;
    }
    CoTaskMemory<WAVEFORMATEX> format;
    if (FAILED(client->GetMixFormat(format.Receive()))) {
        return;
    }
    info.sampleRate = format->nSamplesPerSec;
    info.channels = format->nChannels;
}

} // namespace

std::vector<AudioDeviceInfo> AudioCapture::EnumerateDevices(EDataFlow flow) {
    std::vector<AudioDeviceInfo> devices;
    ComRef<IMMDeviceEnumerator> enumerator;
    if (FAILED(CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                                __uuidof(IMMDeviceEnumerator), enumerator.ReceiveVoid()))) {
        return devices;
    }
    ComRef<IMMDeviceCollection> collection;
    if (FAILED(enumerator->EnumAudioEndpoints(flow, DEVICE_STATE_ACTIVE, collection.Receive()))) {
        return devices;
    }
    UINT count = 0;
    collection->GetCount(&count);
    for (UINT index = 0; index < count; ++index) {
        ComRef<IMMDevice> device;
        if (FAILED(collection->Item(index, device.Receive()))) {
            continue;
        }
        AudioDeviceInfo info;
        info.loopback = flow == eRender;
        info.id = ReadId(*device.get());
        info.name = ReadFriendlyName(*device.get());
        ReadMixFormat(*device.get(), info);
        devices.push_back(std::move(info));
    }
    return devices;
}

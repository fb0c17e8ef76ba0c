// Audio endpoints (room audio/).
#pragma once

#include <propidl.h>

enum EDataFlow { eRender = 0, eCapture = 1 };
enum ERole { eConsole = 0 };

constexpr DWORD DEVICE_STATE_ACTIVE = 1;

struct IMMDevice : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Activate(REFIID iid, DWORD context, PROPVARIANT* parameters,
                                               void** object) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD access, IPropertyStore** store) = 0;
    // `*id` is CoTaskMemAlloc'ed.
    virtual HRESULT STDMETHODCALLTYPE GetId(LPWSTR* id) = 0;

protected:
    ~IMMDevice() = default;
};
KELVARIN_UUID(IMMDevice, 0xD666063F, 0x1587, 0x4E43, 0x81, 0xF1, 0xB9, 0x48, 0xE8, 0x07, 0x36, 0x3F)

struct IMMDeviceCollection : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetCount(UINT* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE Item(UINT index, IMMDevice** device) = 0;

protected:
    ~IMMDeviceCollection() = default;
};
KELVARIN_UUID(IMMDeviceCollection, 0x0BD7A1BE, 0x7A1A, 0x44DB, 0x83, 0x97, 0xCC, 0x53, 0x92, 0x38,
              0x7B, 0x5E)

struct IMMDeviceEnumerator : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow flow, DWORD states,
                                                         IMMDeviceCollection** devices) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow flow, ERole role,
                                                              IMMDevice** device) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR id, IMMDevice** device) = 0;

protected:
    ~IMMDeviceEnumerator() = default;
};
KELVARIN_UUID(IMMDeviceEnumerator, 0xA95664D2, 0x9614, 0x4F35, 0xA7, 0x46, 0xDE, 0x8D, 0xB6, 0x36,
              0x17, 0xE6)

class MMDeviceEnumerator; // the class behind CoCreateInstance
KELVARIN_UUID(MMDeviceEnumerator, 0xBCDE0395, 0xE52F, 0x467C, 0x8E, 0x3D, 0xC4, 0x57, 0x92, 0x91,
              0x69, 0x2E)

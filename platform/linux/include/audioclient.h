// Shared-mode capture (room audio/).
#pragma once

#include <mmreg.h>

using REFERENCE_TIME = std::int64_t; // units of 100 ns

enum AUDCLNT_SHAREMODE { AUDCLNT_SHAREMODE_SHARED = 0 };

constexpr DWORD AUDCLNT_STREAMFLAGS_LOOPBACK = 0x00020000;
constexpr DWORD AUDCLNT_STREAMFLAGS_EVENTCALLBACK = 0x00040000;

constexpr DWORD AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY = 1;
constexpr DWORD AUDCLNT_BUFFERFLAGS_SILENT = 2;

constexpr HRESULT AUDCLNT_S_BUFFER_EMPTY = 0x08890001;
constexpr HRESULT AUDCLNT_E_NOT_INITIALIZED = static_cast<HRESULT>(0x88890001);
constexpr HRESULT AUDCLNT_E_ALREADY_INITIALIZED = static_cast<HRESULT>(0x88890002);
constexpr HRESULT AUDCLNT_E_WRONG_ENDPOINT_TYPE = static_cast<HRESULT>(0x88890003);
constexpr HRESULT AUDCLNT_E_DEVICE_INVALIDATED = static_cast<HRESULT>(0x88890004);
constexpr HRESULT AUDCLNT_E_NOT_STOPPED = static_cast<HRESULT>(0x88890005);
constexpr HRESULT AUDCLNT_E_OUT_OF_ORDER = static_cast<HRESULT>(0x88890007);
constexpr HRESULT AUDCLNT_E_UNSUPPORTED_FORMAT = static_cast<HRESULT>(0x88890008);
constexpr HRESULT AUDCLNT_E_INVALID_SIZE = static_cast<HRESULT>(0x88890009);
constexpr HRESULT AUDCLNT_E_SERVICE_NOT_RUNNING = static_cast<HRESULT>(0x88890010);
constexpr HRESULT AUDCLNT_E_EVENTHANDLE_NOT_EXPECTED = static_cast<HRESULT>(0x88890011);
constexpr HRESULT AUDCLNT_E_EVENTHANDLE_NOT_SET = static_cast<HRESULT>(0x88890014);

struct IAudioClient : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE mode, DWORD flags,
                                                 REFERENCE_TIME bufferDuration,
                                                 REFERENCE_TIME periodicity,
                                                 const WAVEFORMATEX* format,
                                                 const GUID* session) = 0;
    // `*format` is CoTaskMemAlloc'ed.
    virtual HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX** format) = 0;
    virtual HRESULT STDMETHODCALLTYPE Start() = 0;
    virtual HRESULT STDMETHODCALLTYPE Stop() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE event) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetService(REFIID iid, void** object) = 0;

protected:
    ~IAudioClient() = default;
};
KELVARIN_UUID(IAudioClient, 0x1CB9AD4C, 0xDBFA, 0x4C32, 0xB1, 0x78, 0xC2, 0xF5, 0x68, 0xA7, 0x03,
              0xB2)

struct IAudioCaptureClient : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetBuffer(BYTE** data, UINT32* frames, DWORD* flags,
                                                UINT64* devicePosition, UINT64* qpcPosition) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32* frames) = 0;

protected:
    ~IAudioCaptureClient() = default;
};
KELVARIN_UUID(IAudioCaptureClient, 0xC8ADBD64, 0xE71E, 0x48A0, 0xA4, 0xDE, 0x18, 0x5C, 0x39, 0x5C,
              0xD3, 0x17)

// COM's root interfaces. Objects live in the process; there is no marshalling.
#pragma once

#include <windows.h>

#include <cstring>

#define STDMETHODCALLTYPE

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};
using IID = GUID;
using CLSID = GUID;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

inline bool operator==(const GUID& a, const GUID& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// Each interface and class gives its id by a specialisation; `__uuidof(T)` asks for it.
template <typename T>
struct KelvarinUuid;
#define __uuidof(type) (KelvarinUuid<type>::value) // NOLINT(bugprone-reserved-identifier)
#define KELVARIN_UUID(type, d1, d2, d3, ...)                                                       \
    template <>                                                                                    \
    struct KelvarinUuid<type> {                                                                    \
        static constexpr GUID value{d1, d2, d3, {__VA_ARGS__}};                                    \
    };

struct IUnknown {
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) = 0;
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;

protected:
    ~IUnknown() = default; // by Release only
};
KELVARIN_UUID(IUnknown, 0x00000000, 0x0000, 0x0000, 0xC0, 0, 0, 0, 0, 0, 0, 0x46)

struct IClassFactory : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid,
                                                     void** object) = 0;
    virtual HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) = 0;

protected:
    ~IClassFactory() = default;
};
KELVARIN_UUID(IClassFactory, 0x00000001, 0x0000, 0x0000, 0xC0, 0, 0, 0, 0, 0, 0, 0x46)

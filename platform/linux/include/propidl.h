// Property values and stores, as far as the program uses them (room audio/).
#pragma once

#include <objbase.h>

using VARTYPE = std::uint16_t;
constexpr VARTYPE VT_EMPTY = 0;
constexpr VARTYPE VT_UI4 = 19;
constexpr VARTYPE VT_LPWSTR = 31;

struct PROPVARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        ULONG ulVal;
        LPWSTR pwszVal; // CoTaskMemAlloc'ed
    };
};

inline void PropVariantInit(PROPVARIANT* value) {
    *value = {};
}
// Frees what the value owns and makes it empty.
HRESULT PropVariantClear(PROPVARIANT* value);

struct PROPERTYKEY {
    GUID fmtid;
    DWORD pid;
};
using REFPROPERTYKEY = const PROPERTYKEY&;

struct IPropertyStore : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* value) = 0;

protected:
    ~IPropertyStore() = default;
};
KELVARIN_UUID(IPropertyStore, 0x886D8EEB, 0x8CF2, 0x4446, 0x8D, 0x02, 0xCD, 0xBA, 0x1D, 0xBD, 0xCF,
              0x99)

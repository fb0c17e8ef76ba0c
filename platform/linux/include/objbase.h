// COM's base services, as far as the program uses them (room audio/).
#pragma once

#include <unknwn.h>

constexpr DWORD COINIT_MULTITHREADED = 0;
constexpr DWORD CLSCTX_INPROC_SERVER = 1;
constexpr DWORD CLSCTX_ALL = 23;
constexpr DWORD REGCLS_MULTIPLEUSE = 1;
constexpr DWORD STGM_READ = 0;

// There is one apartment, and nothing to set up for it.
HRESULT CoInitializeEx(LPVOID reserved, DWORD mode);
void CoUninitialize();

// Makes an object of a class that CoRegisterClassObject has made known, else of the built-in
// classes (MMDeviceEnumerator). Any thread.
HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid,
                         LPVOID* object);

// Puts a factory before the built-in classes until it is revoked. Any thread.
HRESULT CoRegisterClassObject(REFCLSID clsid, IUnknown* factory, DWORD context, DWORD flags,
                              LPDWORD registration);
HRESULT CoRevokeClassObject(DWORD registration);

LPVOID CoTaskMemAlloc(std::size_t bytes);
void CoTaskMemFree(LPVOID memory);

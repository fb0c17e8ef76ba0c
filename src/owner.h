// Owners of what the system hands out: each releases what it holds, once.
#pragma once

#include <windows.h>
#include <objbase.h>

#include <cstdint>
#include <utility>

// Holds one `Handle`, which `Close` releases. `kNone` is the value that stands for none. Can be
// moved, not copied; used by one thread at a time.
template <typename Handle, typename Close, std::intptr_t kNone = 0>
class Owner {
public:
    Owner() = default;
    explicit Owner(Handle handle) : handle_(handle) {}
    ~Owner() { Reset(); }
    Owner(Owner&& other) noexcept : handle_(other.Release()) {}
    Owner& operator=(Owner&& other) noexcept {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }
    Owner(const Owner&) = delete;
    Owner& operator=(const Owner&) = delete;

    explicit operator bool() const { return handle_ != None(); }
    Handle operator->() const { return handle_; } // for owners of pointers
    const Handle& get() const { return handle_; }

    // Holds another one; what was held is released.
    void Reset(Handle handle = None()) {
        if (Handle former = std::exchange(handle_, handle); former != None()) {
            Close()(former);
        }
    }
    // Where a call of the system puts what it hands out; what was held is released first.
    Handle* Receive() {
        Reset();
        return &handle_;
    }
    void** ReceiveVoid() { return reinterpret_cast<void**>(Receive()); }

private:
    static Handle None() { return reinterpret_cast<Handle>(kNone); }
    Handle Release() { return std::exchange(handle_, None()); }

    Handle handle_ = None();
};

struct CloseSystemHandle {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using EventHandle = Owner<HANDLE, CloseSystemHandle>;
using FileHandle = Owner<HANDLE, CloseSystemHandle, -1>; // INVALID_HANDLE_VALUE

// A mutex that the thread owns from its creation on.
struct ReleaseOwnedMutex {
    void operator()(HANDLE mutex) const {
        ReleaseMutex(mutex); // fails where another process has it
        CloseHandle(mutex);
    }
};
using OwnedMutex = Owner<HANDLE, ReleaseOwnedMutex>;

struct CloseRegistryKey {
    void operator()(HKEY key) const { RegCloseKey(key); }
};
using RegistryKey = Owner<HKEY, CloseRegistryKey>;

struct DestroyOwnedMenu {
    void operator()(HMENU menu) const { DestroyMenu(menu); }
};
using MenuOwner = Owner<HMENU, DestroyOwnedMenu>;

struct DestroyOwnedWindow {
    void operator()(HWND window) const { DestroyWindow(window); }
};
using WindowOwner = Owner<HWND, DestroyOwnedWindow>;

// A reference to a COM object.
struct ReleaseReference {
    template <typename T>
    void operator()(T* object) const {
        object->Release();
    }
};
template <typename T>
using ComRef = Owner<T*, ReleaseReference>;

// Memory of the COM task allocator, such as a wave format or a device's id.
struct FreeTaskMemory {
    void operator()(void* memory) const { CoTaskMemFree(memory); }
};
template <typename T>
using CoTaskMemory = Owner<T*, FreeTaskMemory>;

// Owners of what COM hands out.
#pragma once

#include <objbase.h>

#include <utility>

// An owned reference to a COM object, released on destruction. Used by one thread at a time.
template <typename T>
class ComRef {
public:
    ComRef() = default;
    ~ComRef() { Reset(); }
    ComRef(ComRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    ComRef& operator=(ComRef&& other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }

    explicit operator bool() const { return object_ != nullptr; }
    T* operator->() const { return object_; }
    T* get() const { return object_; }

    void Reset() {
        if (T* object = std::exchange(object_, nullptr); object != nullptr) {
            object->Release();
        }
    }

    // Where a call puts its new reference; what was held before is released first.
    T** Receive() {
        Reset();
        return &object_;
    }
    void** ReceiveVoid() { return reinterpret_cast<void**>(Receive()); }

private:
    T* object_ = nullptr;
};

// Memory of the COM task allocator, such as a wave format or a device's id.
template <typename T>
class CoTaskMemory {
public:
    CoTaskMemory() = default;
    ~CoTaskMemory() { Reset(); }
    CoTaskMemory(CoTaskMemory&& other) noexcept : memory_(std::exchange(other.memory_, nullptr)) {}
    CoTaskMemory& operator=(CoTaskMemory&& other) noexcept {
        std::swap(memory_, other.memory_);
        return *this;
    }

    explicit operator bool() const { return memory_ != nullptr; }
    T* operator->() const { return memory_; }
    T* get() const { return memory_; }

    void Reset() {
        if (T* memory = std::exchange(memory_, nullptr); memory != nullptr) {
            CoTaskMemFree(memory);
        }
    }
    T** Receive() {
        Reset();
        return &memory_;
    }

private:
    T* memory_ = nullptr;
};

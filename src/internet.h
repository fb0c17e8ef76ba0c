// What every request to the service needs of the platform's HTTP: an owner of its handles and the
// service's address. Knows no path and no message of the protocol.
#pragma once

#include "wide_text.h"

#include <windows.h>
#include <winhttp.h>

#include <optional>
#include <string>
#include <utility>

// An owned WinHTTP handle.
class InternetHandle {
public:
    InternetHandle() = default;
    explicit InternetHandle(HINTERNET handle) : handle_(handle) {}
    ~InternetHandle() { Reset(); }
    InternetHandle(InternetHandle&& other) noexcept
        : handle_(std::exchange(other.handle_, nullptr)) {}
    InternetHandle& operator=(InternetHandle&& other) noexcept {
        if (this != &other) {
            Reset();
            handle_ = std::exchange(other.handle_, nullptr);
        }
        return *this;
    }

    explicit operator bool() const { return handle_ != nullptr; }
    HINTERNET get() const { return handle_; }
    void Reset() {
        if (HINTERNET handle = std::exchange(handle_, nullptr); handle != nullptr) {
            WinHttpCloseHandle(handle);
        }
    }

private:
    HINTERNET handle_ = nullptr;
};

struct ServiceAddress {
    WideString host;
    INTERNET_PORT port = 0;
    bool https = false;
};

// The parts of the base URL; none when it is no URL.
std::optional<ServiceAddress> CrackServiceUrl();

// As the program introduces itself; null when the platform has no HTTP.
InternetHandle OpenInternet();

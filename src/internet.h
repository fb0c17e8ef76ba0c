// What every request to the service needs of the platform's HTTP: an owner of its handles and the
// service's address, and the one path that two of its callers ask for. Knows no message of the
// protocol.
#pragma once

#include "owner.h"
#include "wide_text.h"

#include <windows.h>
#include <winhttp.h>

#include <optional>
#include <string>

struct CloseInternetHandle {
    void operator()(HINTERNET handle) const { WinHttpCloseHandle(handle); }
};
using InternetHandle = Owner<HINTERNET, CloseInternetHandle>;

struct ServiceAddress {
    WideString host;
    INTERNET_PORT port = 0;
    bool https = false;
};

// The parts of the base URL; none when it is no URL.
std::optional<ServiceAddress> CrackServiceUrl();

// A request over a connection, not yet sent; null when there is no memory for it.
InternetHandle OpenRequest(const InternetHandle& connection, const WCHAR* method,
                           const WideString& path, bool https);

// The path, with its query, that tells the state of an access key.
WideString KeyStatusPath(const WideString& accessKey);

// As the program introduces itself; null when the platform has no HTTP.
InternetHandle OpenInternet();

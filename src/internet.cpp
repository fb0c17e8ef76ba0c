#include "internet.h"

#include "service_url.h"

#include <iterator>

std::optional<ServiceAddress> CrackServiceUrl() {
    WCHAR host[256] = {};
    WCHAR path[512] = {};
    URL_COMPONENTS parts = {};
    parts.dwStructSize = sizeof parts;
    parts.lpszHostName = host;
    parts.dwHostNameLength = static_cast<DWORD>(std::size(host));
    parts.lpszUrlPath = path;
    parts.dwUrlPathLength = static_cast<DWORD>(std::size(path));
    if (!WinHttpCrackUrl(ServiceUrl().c_str(), 0, 0, &parts)) {
        return std::nullopt;
    }
    return ServiceAddress{host, parts.nPort, parts.nScheme == INTERNET_SCHEME_HTTPS};
}

InternetHandle OpenInternet() {
    return InternetHandle(WinHttpOpen(TEXT("KelvarinClient/1.0"), WINHTTP_ACCESS_TYPE_DEFAULT_PROXY,
                                      WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
}

InternetHandle OpenRequest(const InternetHandle& connection, const WCHAR* method,
                           const WideString& path, bool https) {
    return InternetHandle(WinHttpOpenRequest(connection.get(), method, path.c_str(), nullptr,
                                             WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                             https ? WINHTTP_FLAG_SECURE : 0));
}

WideString KeyStatusPath(const WideString& accessKey) {
    return TEXT("/key/status?access_key=") + accessKey;
}

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

DWORD ReadStatus(HINTERNET request) {
    DWORD status = 0;
    DWORD bytes = sizeof status;
    WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                        WINHTTP_HEADER_NAME_BY_INDEX, &status, &bytes, WINHTTP_NO_HEADER_INDEX);
    return status;
}

void ReadBody(HINTERNET request, std::string& body) {
    DWORD available = 0;
    while (WinHttpQueryDataAvailable(request, &available) && available > 0) {
        const std::size_t size = body.size();
        body.resize(size + available);
        DWORD read = 0;
        WinHttpReadData(request, body.data() + size, available, &read);
        body.resize(size + read);
    }
}

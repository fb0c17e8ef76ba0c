#include "test_service_url.h"

#include "service_url.h"

namespace {
WideString currentUrl = TEXT("http://127.0.0.1:1");
}

void SetServiceUrl(const std::string& url) {
    currentUrl = Utf8ToWide(url);
}

WideString ServiceUrl() {
    return currentUrl;
}

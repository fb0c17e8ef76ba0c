#include "test_service_url.h"

namespace {
WideString currentUrl = TEXT("http://127.0.0.1:1");
KeyStatusAccess currentAccess{1, false};
} // namespace

void SetServiceUrl(const std::string& url) {
    currentUrl = Utf8ToWide(url);
}

WideString ServiceUrl() {
    return currentUrl;
}

void SetKeyStatusAccess(KeyStatusAccess access) {
    currentAccess = access;
}

KeyStatusAccess AccessToKeyStatus() {
    return currentAccess;
}

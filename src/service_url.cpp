#include "service_url.h"

WideString ServiceUrl() {
    return TEXT(KELVARIN_SERVICE_URL);
}

KeyStatusAccess AccessToKeyStatus() {
    return {443, true};
}

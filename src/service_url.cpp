#include "service_url.h"

WideString ServiceUrl() {
    return TEXT(KELVARIN_SERVICE_URL);
}

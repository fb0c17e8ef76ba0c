// The address of the service, as a test sets it.
#pragma once

#include "service_url.h"

#include <string>

// Takes effect at the next Configure. Called while no translator is being configured.
void SetServiceUrl(const std::string& url);
// Takes effect at the next check of a key. Called while none runs.
void SetKeyStatusAccess(KeyStatusAccess access);

// The address of the service, as a test sets it.
#pragma once

#include <string>

// Takes effect at the next Configure. Called while no translator is being configured.
void SetServiceUrl(const std::string& url);

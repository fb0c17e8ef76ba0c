// The base URL of the translation service: fixed when the program is built, not a setting.
#pragma once

#include "wide_text.h"

// Scheme, host and port count; a path would not be used.
WideString ServiceUrl();

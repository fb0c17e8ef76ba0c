// Property stores.
#pragma once

#include <propidl.h>

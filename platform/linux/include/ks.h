// Kernel streaming.
#pragma once

#include <unknwn.h>

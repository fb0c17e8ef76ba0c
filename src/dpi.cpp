#include "dpi.h"

int DpiScale = 96;

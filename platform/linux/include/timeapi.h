// Timer resolution (room process/).
#pragma once

#include <windows.h>

using MMRESULT = UINT;
constexpr MMRESULT TIMERR_NOERROR = 0;

// There is nothing to raise: the kernel's timers are finer than any period. Calls pair up.
MMRESULT timeBeginPeriod(UINT periodMs);
MMRESULT timeEndPeriod(UINT periodMs);

// Timer resolution (room process/).
#pragma once

#include <windows.h>

using MMRESULT = UINT;
constexpr MMRESULT TIMERR_NOERROR = 0;

// The process's waits end on ticks of the finest period asked for; see Sleep. Calls pair up.
MMRESULT timeBeginPeriod(UINT periodMs);
MMRESULT timeEndPeriod(UINT periodMs);

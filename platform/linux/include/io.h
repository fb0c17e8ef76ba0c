// Descriptors of the C runtime's streams (room process/). Declarations only. The mode's name stands
// here, since <fcntl.h> is the system's own on Linux.
#pragma once

#include <cstdio>

constexpr int _O_TEXT = 0x4000;
constexpr int _O_U8TEXT = 0x40000;

int _fileno(std::FILE* stream);

// Changes nothing: streams carry UTF-8 as it is. _O_TEXT, or -1 for a descriptor that is not open.
int _setmode(int descriptor, int mode);

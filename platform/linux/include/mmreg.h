// Wave formats. The structures have Windows' packing, since their size says which one it is.
#pragma once

#include <unknwn.h>

constexpr WORD WAVE_FORMAT_PCM = 1;
constexpr WORD WAVE_FORMAT_IEEE_FLOAT = 3;
constexpr WORD WAVE_FORMAT_EXTENSIBLE = 0xFFFE;

#pragma pack(push, 1)

struct WAVEFORMATEX {
    WORD wFormatTag;
    WORD nChannels;
    DWORD nSamplesPerSec;
    DWORD nAvgBytesPerSec;
    WORD nBlockAlign;
    WORD wBitsPerSample;
    WORD cbSize;
};

struct WAVEFORMATEXTENSIBLE {
    WAVEFORMATEX Format;
    union {
        WORD wValidBitsPerSample;
        WORD wSamplesPerBlock;
        WORD wReserved;
    } Samples;
    DWORD dwChannelMask;
    GUID SubFormat;
};

#pragma pack(pop)

static_assert(sizeof(WAVEFORMATEX) == 18 && sizeof(WAVEFORMATEXTENSIBLE) == 40);

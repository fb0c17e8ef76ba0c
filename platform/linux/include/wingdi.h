// Device contexts, bitmaps and brushes. Declarations only; the room painting/ implements them. All
// of it belongs to the thread that has the windows. Null, and what has been destroyed, is refused.
#pragma once

#include <windef.h>

struct RGBQUAD {
    BYTE rgbBlue;
    BYTE rgbGreen;
    BYTE rgbRed;
    BYTE rgbReserved;
};

struct BITMAPINFOHEADER {
    DWORD biSize;
    LONG biWidth;
    LONG biHeight; // negative: the first row is the top one
    WORD biPlanes;
    WORD biBitCount;
    DWORD biCompression;
    DWORD biSizeImage;
    LONG biXPelsPerMeter;
    LONG biYPelsPerMeter;
    DWORD biClrUsed;
    DWORD biClrImportant;
};

struct BITMAPINFO {
    BITMAPINFOHEADER bmiHeader;
    RGBQUAD bmiColors[1];
};

struct BLENDFUNCTION {
    BYTE BlendOp;
    BYTE BlendFlags;
    BYTE SourceConstantAlpha;
    BYTE AlphaFormat;
};

constexpr DWORD BI_RGB = 0;
constexpr UINT DIB_RGB_COLORS = 0;
constexpr BYTE AC_SRC_OVER = 0;
constexpr BYTE AC_SRC_ALPHA = 1;
constexpr int LOGPIXELSX = 88;
constexpr int LOGPIXELSY = 90;

// The screen's context, for measuring only: null for any other window.
HDC GetDC(HWND window);
int ReleaseDC(HWND window, HDC dc);

// A context in memory; nothing can be drawn on it until a bitmap is selected.
HDC CreateCompatibleDC(HDC dc);
BOOL DeleteDC(HDC dc);

// A black, fully transparent bitmap of premultiplied ARGB, whose rows `*bits` then leads to. Only
// 32 bits, BI_RGB, top-down and without a section.
HBITMAP CreateDIBSection(HDC dc, const BITMAPINFO* info, UINT usage, void** bits, HANDLE section,
                         DWORD offset);
HBRUSH CreateSolidBrush(COLORREF colour);
// Takes bitmaps, and for contexts in memory only. Returns what was selected before; null when
// refused, as for a bitmap that another context holds.
HGDIOBJ SelectObject(HDC dc, HGDIOBJ object);
// Refused for a bitmap while a context holds it.
BOOL DeleteObject(HGDIOBJ object);

int FillRect(HDC dc, const RECT* rectangle, HBRUSH brush);

// LOGPIXELSX and LOGPIXELSY, of the primary screen; 0 for others, and where there is no screen.
int GetDeviceCaps(HDC dc, int index);

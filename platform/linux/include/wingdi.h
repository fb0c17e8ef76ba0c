// Device contexts, bitmaps, brushes, fonts and plain text. Declarations only; the room painting/
// implements them. All of it belongs to the thread that has the windows. Null, and what has been
// destroyed, is refused.
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

// ---- Objects ----------------------------------------------------------------------------------

constexpr int NULL_BRUSH = 5; // fills nothing
constexpr int SYSTEM_FONT = 13;
constexpr int DEFAULT_GUI_FONT = 17;

constexpr int FW_NORMAL = 400;
constexpr int FW_SEMIBOLD = 600;
constexpr int FW_BOLD = 700;
constexpr DWORD DEFAULT_CHARSET = 1;
constexpr DWORD CLEARTYPE_QUALITY = 5;

constexpr BYTE GetRValue(COLORREF colour) {
    return static_cast<BYTE>(colour);
}
constexpr BYTE GetGValue(COLORREF colour) {
    return static_cast<BYTE>(colour >> 8);
}
constexpr BYTE GetBValue(COLORREF colour) {
    return static_cast<BYTE>(colour >> 16);
}

// A black, fully transparent bitmap of premultiplied ARGB, whose rows `*bits` then leads to. Only
// 32 bits, BI_RGB, top-down and without a section.
HBITMAP CreateDIBSection(HDC dc, const BITMAPINFO* info, UINT usage, void** bits, HANDLE section,
                         DWORD offset);
// A black bitmap that is opaque, and stays so whatever is drawn on it. A side of 0 gives one pixel.
HBITMAP CreateCompatibleBitmap(HDC dc, int width, int height);
HBRUSH CreateSolidBrush(COLORREF colour);
// A negative height, which is that of the em in pixels; upright and without lines. A family that
// is not installed is replaced by the generic sans serif. Character set, precisions, quality and
// pitch are not looked at.
HFONT CreateFontW(int height, int width, int escapement, int orientation, int weight, DWORD italic,
                  DWORD underline, DWORD strikeOut, DWORD charSet, DWORD outPrecision,
                  DWORD clipPrecision, DWORD quality, DWORD pitchAndFamily, LPCWSTR family);
// Only those named above.
HGDIOBJ GetStockObject(int index);
// Takes fonts, and, for contexts in memory, bitmaps. Returns what was selected before; null when
// refused, as for a bitmap that another context holds.
HGDIOBJ SelectObject(HDC dc, HGDIOBJ object);
// Refused for a bitmap while a context holds it. A stock object stays, and that is no failure. A
// context keeps writing in a font that was deleted.
BOOL DeleteObject(HGDIOBJ object);

// ---- Drawing ----------------------------------------------------------------------------------

constexpr DWORD SRCCOPY = 0x00CC0020;
constexpr int TRANSPARENT = 1;
constexpr int OPAQUE = 2;
constexpr COLORREF CLR_INVALID = 0xFFFFFFFF;

int FillRect(HDC dc, const RECT* rectangle, HBRUSH brush);

// SRCCOPY. What comes to stand in a window is opaque.
BOOL BitBlt(HDC dc, int x, int y, int width, int height, HDC source, int sourceX, int sourceY,
            DWORD operation);

// Each returns what held before.
COLORREF SetTextColor(HDC dc, COLORREF colour);
COLORREF SetBkColor(HDC dc, COLORREF colour);
int SetBkMode(HDC dc, int mode);
COLORREF GetTextColor(HDC dc);
COLORREF GetBkColor(HDC dc);

constexpr UINT DT_TOP = 0x0000;
constexpr UINT DT_LEFT = 0x0000;
constexpr UINT DT_CENTER = 0x0001;
constexpr UINT DT_RIGHT = 0x0002;
constexpr UINT DT_VCENTER = 0x0004; // with DT_SINGLELINE
constexpr UINT DT_WORDBREAK = 0x0010;
constexpr UINT DT_SINGLELINE = 0x0020;
constexpr UINT DT_NOCLIP = 0x0100;
constexpr UINT DT_CALCRECT = 0x0400; // draws nothing, and fits the rectangle to the text
constexpr UINT DT_NOPREFIX = 0x0800; // an ampersand is one here in any case
constexpr UINT DT_END_ELLIPSIS = 0x8000;

// `length` is in units, -1 up to the terminating zero. Returns how far below the rectangle's top
// the text ends; 0 when refused. Words of every script follow each other from the left, and lines
// begin there unless the flags say otherwise; they are as high as the font's own.
int DrawTextW(HDC dc, LPCWSTR text, int length, LPRECT rectangle, UINT flags);

// LOGPIXELSX and LOGPIXELSY, of the primary screen; 0 for others, and where there is no screen.
int GetDeviceCaps(HDC dc, int index);

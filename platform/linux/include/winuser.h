// Windows, messages, timers, input, cursors, icons and menus. Declarations only; the room
// windowing/ implements them, and shell/ the menus. What takes a window belongs to the thread that
// has the windows, PostMessageW apart.
#pragma once

#include <windef.h>

struct BLENDFUNCTION; // in wingdi.h

DECLARE_HANDLE(DPI_AWARENESS_CONTEXT);

using WNDPROC = LRESULT(CALLBACK*)(HWND, UINT, WPARAM, LPARAM);
using TIMERPROC = void(CALLBACK*)(HWND, UINT, UINT_PTR, DWORD);

#define MAKEINTRESOURCEW(number)                                                                   \
    (reinterpret_cast<LPWSTR>(static_cast<ULONG_PTR>(static_cast<WORD>(number))))

// ---- Messages ---------------------------------------------------------------------------------

constexpr UINT WM_NULL = 0x0000;
constexpr UINT WM_CREATE = 0x0001;
constexpr UINT WM_DESTROY = 0x0002;
constexpr UINT WM_PAINT = 0x000F;
constexpr UINT WM_CLOSE = 0x0010;
constexpr UINT WM_QUIT = 0x0012;
constexpr UINT WM_ERASEBKGND = 0x0014;
constexpr UINT WM_SETCURSOR = 0x0020;
constexpr UINT WM_CONTEXTMENU = 0x007B;
constexpr UINT WM_NCCREATE = 0x0081;
constexpr UINT WM_NCDESTROY = 0x0082;
constexpr UINT WM_TIMER = 0x0113;
constexpr UINT WM_MOUSEFIRST = 0x0200;
constexpr UINT WM_MOUSEMOVE = 0x0200;
constexpr UINT WM_LBUTTONDOWN = 0x0201;
constexpr UINT WM_LBUTTONUP = 0x0202;
constexpr UINT WM_LBUTTONDBLCLK = 0x0203;
constexpr UINT WM_RBUTTONDOWN = 0x0204;
constexpr UINT WM_RBUTTONUP = 0x0205;
constexpr UINT WM_RBUTTONDBLCLK = 0x0206;
constexpr UINT WM_MOUSEWHEEL = 0x020A;
constexpr UINT WM_CAPTURECHANGED = 0x0215;
constexpr UINT WM_MOUSELEAVE = 0x02A3;
constexpr UINT WM_DPICHANGED = 0x02E0;
constexpr UINT WM_USER = 0x0400;
constexpr UINT WM_APP = 0x8000;

constexpr UINT PM_NOREMOVE = 0x0000;
constexpr UINT PM_REMOVE = 0x0001;

struct MSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time; // ms, wraps around
    POINT pt;   // where the pointer was last seen, on the screen
};
using LPMSG = MSG*;

// Waits for the next message. 0 for WM_QUIT, -1 where there are no windows to get messages for.
// Order: posted messages, the quit message, input, timers, painting.
BOOL GetMessageW(LPMSG message, HWND window, UINT firstMessage, UINT lastMessage);
BOOL PeekMessageW(LPMSG message, HWND window, UINT firstMessage, UINT lastMessage, UINT remove);
// There are no keyboard messages to translate: FALSE.
BOOL TranslateMessage(const MSG* message);
LRESULT DispatchMessageW(const MSG* message);
LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// Any thread. FALSE when there is no such window, or none any more.
BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
void PostQuitMessage(int exitCode);

// ---- Windows ----------------------------------------------------------------------------------

constexpr UINT CS_DBLCLKS = 0x0008;

struct WNDCLASSEXW {
    UINT cbSize;
    UINT style;
    WNDPROC lpfnWndProc;
    int cbClsExtra;
    int cbWndExtra;
    HINSTANCE hInstance;
    HICON hIcon;
    HCURSOR hCursor;
    HBRUSH hbrBackground;
    LPCWSTR lpszMenuName;
    LPCWSTR lpszClassName;
    HICON hIconSm;
};

// 0 when there is such a class.
ATOM RegisterClassExW(const WNDCLASSEXW* windowClass);

constexpr DWORD WS_POPUP = 0x80000000;
constexpr DWORD WS_CHILD = 0x40000000;
constexpr DWORD WS_VISIBLE = 0x10000000;

constexpr DWORD WS_EX_TOPMOST = 0x00000008;
constexpr DWORD WS_EX_TRANSPARENT = 0x00000020;
constexpr DWORD WS_EX_TOOLWINDOW = 0x00000080;
constexpr DWORD WS_EX_LAYERED = 0x00080000;
constexpr DWORD WS_EX_NOACTIVATE = 0x08000000;

struct CREATESTRUCTW {
    LPVOID lpCreateParams;
    HINSTANCE hInstance;
    HMENU hMenu;
    HWND hwndParent;
    int cy;
    int cx;
    int y;
    int x;
    LONG style;
    LPCWSTR lpszName;
    LPCWSTR lpszClass;
    DWORD dwExStyle;
};
using LPCREATESTRUCTW = CREATESTRUCTW*;

// Top-level windows (WS_POPUP), whose parent is their owner and takes them with it. Null when there
// is no screen, no such class, or when WM_NCCREATE or WM_CREATE refuses.
HWND CreateWindowExW(DWORD exStyle, LPCWSTR className, LPCWSTR title, DWORD style, int x, int y,
                     int width, int height, HWND parent, HMENU menu, HINSTANCE instance,
                     LPVOID parameter);
BOOL DestroyWindow(HWND window);
LRESULT DefWindowProcW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
BOOL IsWindow(HWND window);
BOOL IsWindowVisible(HWND window);

constexpr int GWLP_WNDPROC = -4;
constexpr int GWL_STYLE = -16;
constexpr int GWL_EXSTYLE = -20;
constexpr int GWLP_USERDATA = -21;

// WS_EX_TRANSPARENT comes and goes at once, also while the window shows.
LONG_PTR GetWindowLongPtrW(HWND window, int index);
LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value);

constexpr int SW_HIDE = 0;
constexpr int SW_SHOWNOACTIVATE = 4;
constexpr int SW_SHOW = 5;
constexpr int SW_SHOWNA = 8;

// Whether the window was visible before. Also for a window that FindWindowW found elsewhere, whose
// owner is given a second to do it.
BOOL ShowWindow(HWND window, int command);
BOOL SetForegroundWindow(HWND window);
// A top-level window of the class, of this process or of another one of this user; no title may be
// given. A window of another process can be shown, hidden and brought to the front.
HWND FindWindowW(LPCWSTR className, LPCWSTR title);

#define HWND_TOP (static_cast<HWND>(nullptr))
#define HWND_TOPMOST (reinterpret_cast<HWND>(static_cast<LONG_PTR>(-1)))

constexpr UINT SWP_NOSIZE = 0x0001;
constexpr UINT SWP_NOMOVE = 0x0002;
constexpr UINT SWP_NOZORDER = 0x0004;
constexpr UINT SWP_NOREDRAW = 0x0008;
constexpr UINT SWP_NOACTIVATE = 0x0010;
constexpr UINT SWP_SHOWWINDOW = 0x0040;
constexpr UINT SWP_HIDEWINDOW = 0x0080;

BOOL SetWindowPos(HWND window, HWND insertAfter, int x, int y, int width, int height, UINT flags);
BOOL GetWindowRect(HWND window, LPRECT rect);
BOOL GetClientRect(HWND window, LPRECT rect);
BOOL ClientToScreen(HWND window, LPPOINT point);
BOOL ScreenToClient(HWND window, LPPOINT point);
BOOL PtInRect(const RECT* rect, POINT point);

constexpr DWORD WDA_NONE = 0x00;
#define WDA_EXCLUDEFROMCAPTURE 0x00000011 // a macro, since older headers lack it

// X11 knows nothing of the kind: FALSE.
BOOL SetWindowDisplayAffinity(HWND window, DWORD affinity);

// ---- Painting ---------------------------------------------------------------------------------

struct PAINTSTRUCT {
    HDC hdc;
    BOOL fErase;
    RECT rcPaint;
    BOOL fRestore;
    BOOL fIncUpdate;
    BYTE rgbReserved[32];
};
using LPPAINTSTRUCT = PAINTSTRUCT*;

BOOL InvalidateRect(HWND window, const RECT* rect, BOOL erase);
BOOL UpdateWindow(HWND window);
HDC BeginPaint(HWND window, LPPAINTSTRUCT paint);
BOOL EndPaint(HWND window, const PAINTSTRUCT* paint);

constexpr DWORD ULW_ALPHA = 0x00000002;

// The picture is copied, and on the screen when the call returns. Destination and colour key are
// not looked at; a null position leaves the window where it is.
BOOL UpdateLayeredWindow(HWND window, HDC destination, POINT* position, SIZE* size, HDC source,
                         POINT* sourcePosition, COLORREF colourKey, BLENDFUNCTION* blend,
                         DWORD flags);

// ---- Timers -----------------------------------------------------------------------------------

// Only timers of a window that send it WM_TIMER: 0 with a procedure. At least 10 ms.
UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT periodMs, TIMERPROC procedure);
BOOL KillTimer(HWND window, UINT_PTR id);

// ---- Pointer ----------------------------------------------------------------------------------

constexpr WPARAM MK_LBUTTON = 0x0001;
constexpr WPARAM MK_RBUTTON = 0x0002;
constexpr WPARAM MK_SHIFT = 0x0004;
constexpr WPARAM MK_CONTROL = 0x0008;
constexpr WPARAM MK_MBUTTON = 0x0010;

constexpr int WHEEL_DELTA = 120;
#define GET_WHEEL_DELTA_WPARAM(wParam) (static_cast<short>(HIWORD(wParam)))

constexpr int HTCLIENT = 1;

constexpr DWORD TME_LEAVE = 0x00000002;

struct TRACKMOUSEEVENT {
    DWORD cbSize;
    DWORD dwFlags;
    HWND hwndTrack;
    DWORD dwHoverTime; // ms
};
using LPTRACKMOUSEEVENT = TRACKMOUSEEVENT*;

HWND SetCapture(HWND window);
BOOL ReleaseCapture();
HWND GetCapture();
BOOL TrackMouseEvent(LPTRACKMOUSEEVENT track);
BOOL GetCursorPos(LPPOINT point);

// ---- Cursors and icons ------------------------------------------------------------------------

#define IDC_ARROW MAKEINTRESOURCEW(32512)
#define IDC_SIZENS MAKEINTRESOURCEW(32645)
#define IDC_HAND MAKEINTRESOURCEW(32649)
#define IDI_APPLICATION MAKEINTRESOURCEW(32512)

constexpr UINT IMAGE_ICON = 1;

HCURSOR LoadCursorW(HINSTANCE instance, LPCWSTR name);
HCURSOR SetCursor(HCURSOR cursor);
// Icon N is what the program's resources hold as ":/icon/N/<size>.png": the nearest size, scaled.
HANDLE LoadImageW(HINSTANCE instance, LPCWSTR name, UINT type, int width, int height, UINT flags);
HICON LoadIconW(HINSTANCE instance, LPCWSTR name);
BOOL DestroyIcon(HICON icon);

// ---- Menus (room shell/) ----------------------------------------------------------------------

constexpr UINT MF_STRING = 0x0000;
constexpr UINT MF_CHECKED = 0x0008;
constexpr UINT MF_SEPARATOR = 0x0800;

constexpr UINT TPM_RIGHTBUTTON = 0x0002;
constexpr UINT TPM_BOTTOMALIGN = 0x0020;
constexpr UINT TPM_RETURNCMD = 0x0100;

HMENU CreatePopupMenu();
BOOL AppendMenuW(HMENU menu, UINT flags, UINT_PTR id, LPCWSTR text);
// Returns when the menu has closed: the id of the row chosen, 0 for none. Messages and timers go on
// meanwhile. Only with TPM_RETURNCMD.
BOOL TrackPopupMenu(HMENU menu, UINT flags, int x, int y, int reserved, HWND window,
                    const RECT* rect);
BOOL DestroyMenu(HMENU menu);

// ---- Screen -----------------------------------------------------------------------------------

constexpr int SM_CXSCREEN = 0;
constexpr int SM_CYSCREEN = 1;

#define DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2                                                 \
    (reinterpret_cast<DPI_AWARENESS_CONTEXT>(static_cast<LONG_PTR>(-4)))

// Pixels of the primary screen; 0 where there is none.
int GetSystemMetrics(int index);
UINT GetDpiForWindow(HWND window);
// Programs are always told the truth about DPI here: TRUE.
BOOL SetProcessDpiAwarenessContext(DPI_AWARENESS_CONTEXT context);

// number * numerator / denominator in 64 bits, halves away from zero; -1 where that does not fit or
// the denominator is 0.
int MulDiv(int number, int numerator, int denominator);

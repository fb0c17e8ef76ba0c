// Windows, messages, timers, input, controls, cursors, icons and menus. Declarations only; the room
// windowing/ implements them, controls/ the system's window classes, and shell/ the menus. What
// takes a window belongs to the thread that has the windows, PostMessageW apart.
#pragma once

#include <windef.h>

struct BLENDFUNCTION; // in wingdi.h

DECLARE_HANDLE(DPI_AWARENESS_CONTEXT);

using SHORT = std::int16_t;
using PBYTE = BYTE*;

using WNDPROC = LRESULT(CALLBACK*)(HWND, UINT, WPARAM, LPARAM);
using TIMERPROC = void(CALLBACK*)(HWND, UINT, UINT_PTR, DWORD);

#define MAKEINTRESOURCEW(number)                                                                   \
    (reinterpret_cast<LPWSTR>(static_cast<ULONG_PTR>(static_cast<WORD>(number))))

// ---- Messages ---------------------------------------------------------------------------------

constexpr UINT WM_NULL = 0x0000;
constexpr UINT WM_CREATE = 0x0001;
constexpr UINT WM_DESTROY = 0x0002;
constexpr UINT WM_ACTIVATE = 0x0006;
constexpr UINT WM_SETFOCUS = 0x0007;
constexpr UINT WM_KILLFOCUS = 0x0008;
constexpr UINT WM_ENABLE = 0x000A;
constexpr UINT WM_SETTEXT = 0x000C;
constexpr UINT WM_GETTEXT = 0x000D;
constexpr UINT WM_GETTEXTLENGTH = 0x000E;
constexpr UINT WM_PAINT = 0x000F;
constexpr UINT WM_CLOSE = 0x0010;
constexpr UINT WM_QUIT = 0x0012;
constexpr UINT WM_ERASEBKGND = 0x0014;
constexpr UINT WM_SETCURSOR = 0x0020;
constexpr UINT WM_DRAWITEM = 0x002B;
constexpr UINT WM_SETFONT = 0x0030;
constexpr UINT WM_GETFONT = 0x0031;
constexpr UINT WM_CONTEXTMENU = 0x007B;
constexpr UINT WM_NCCREATE = 0x0081;
constexpr UINT WM_NCDESTROY = 0x0082;
constexpr UINT WM_NCHITTEST = 0x0084;
constexpr UINT EM_GETSEL = 0x00B0;
constexpr UINT EM_SETSEL = 0x00B1;
constexpr UINT EM_REPLACESEL = 0x00C2;
constexpr UINT EM_UNDO = 0x00C7;
constexpr UINT WM_KEYFIRST = 0x0100;
constexpr UINT WM_KEYDOWN = 0x0100;
constexpr UINT WM_KEYUP = 0x0101;
constexpr UINT WM_CHAR = 0x0102;
constexpr UINT WM_SYSKEYDOWN = 0x0104;
constexpr UINT WM_SYSKEYUP = 0x0105;
constexpr UINT WM_SYSCHAR = 0x0106;
constexpr UINT WM_KEYLAST = 0x0109;
constexpr UINT WM_COMMAND = 0x0111;
constexpr UINT WM_TIMER = 0x0113;
constexpr UINT WM_CTLCOLOREDIT = 0x0133;
constexpr UINT WM_CTLCOLORBTN = 0x0135;
constexpr UINT WM_CTLCOLORSTATIC = 0x0138;
constexpr UINT WM_MOUSEFIRST = 0x0200;
constexpr UINT WM_MOUSEMOVE = 0x0200;
constexpr UINT WM_LBUTTONDOWN = 0x0201;
constexpr UINT WM_LBUTTONUP = 0x0202;
constexpr UINT WM_LBUTTONDBLCLK = 0x0203;
constexpr UINT WM_RBUTTONDOWN = 0x0204;
constexpr UINT WM_RBUTTONUP = 0x0205;
constexpr UINT WM_RBUTTONDBLCLK = 0x0206;
constexpr UINT WM_MBUTTONDOWN = 0x0207;
constexpr UINT WM_MBUTTONUP = 0x0208;
constexpr UINT WM_MBUTTONDBLCLK = 0x0209;
constexpr UINT WM_MOUSEWHEEL = 0x020A;
constexpr UINT WM_CAPTURECHANGED = 0x0215;
constexpr UINT WM_MOUSELEAVE = 0x02A3;
constexpr UINT WM_DPICHANGED = 0x02E0;
constexpr UINT WM_CUT = 0x0300;
constexpr UINT WM_COPY = 0x0301;
constexpr UINT WM_PASTE = 0x0302;
constexpr UINT WM_CLEAR = 0x0303;
constexpr UINT WM_UNDO = 0x0304;
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
// Whether it is a key going down or up. A real key's WM_CHAR follows its WM_KEYDOWN by itself, for
// the same window, also when that was handled; a posted WM_KEYDOWN has none.
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
constexpr DWORD WS_DISABLED = 0x08000000;

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

// Top-level windows (WS_POPUP), whose parent is their owner and takes them with it, and children
// (WS_CHILD), which stand in their parent's client area and whose menu is their id. The classes
// "STATIC", "EDIT" and "BUTTON" are there from the start. Null when there is no screen, no such
// class, or when WM_NCCREATE or WM_CREATE refuses.
HWND CreateWindowExW(DWORD exStyle, LPCWSTR className, LPCWSTR title, DWORD style, int x, int y,
                     int width, int height, HWND parent, HMENU menu, HINSTANCE instance,
                     LPVOID parameter);
BOOL DestroyWindow(HWND window);
LRESULT DefWindowProcW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
BOOL IsWindow(HWND window);
// Whether it is shown, and all that it stands in.
BOOL IsWindowVisible(HWND window);

HWND GetDlgItem(HWND parent, int id);
int GetDlgCtrlID(HWND window);
// Whether it was disabled before.
BOOL EnableWindow(HWND window, BOOL enable);
BOOL IsWindowEnabled(HWND window);

BOOL SetWindowTextW(HWND window, LPCWSTR text);
// At most `room` - 1 units and the terminator; returns the units without it.
int GetWindowTextW(HWND window, LPWSTR text, int room);

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

constexpr int HTTRANSPARENT = -1;
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
// The window of this process that the pointer would meet there: disabled, hidden and transparent
// ones are passed over. Windows of other processes are not seen.
HWND WindowFromPoint(POINT onScreen);

// ---- Keyboard ---------------------------------------------------------------------------------

constexpr int VK_BACK = 0x08;
constexpr int VK_TAB = 0x09;
constexpr int VK_RETURN = 0x0D;
constexpr int VK_SHIFT = 0x10;
constexpr int VK_CONTROL = 0x11;
constexpr int VK_MENU = 0x12;
constexpr int VK_PAUSE = 0x13;
constexpr int VK_CAPITAL = 0x14;
constexpr int VK_ESCAPE = 0x1B;
constexpr int VK_SPACE = 0x20;
constexpr int VK_PRIOR = 0x21;
constexpr int VK_NEXT = 0x22;
constexpr int VK_END = 0x23;
constexpr int VK_HOME = 0x24;
constexpr int VK_LEFT = 0x25;
constexpr int VK_UP = 0x26;
constexpr int VK_RIGHT = 0x27;
constexpr int VK_DOWN = 0x28;
constexpr int VK_INSERT = 0x2D;
constexpr int VK_DELETE = 0x2E;
constexpr int VK_LWIN = 0x5B;
constexpr int VK_RWIN = 0x5C;
constexpr int VK_APPS = 0x5D;
constexpr int VK_NUMPAD0 = 0x60;
constexpr int VK_MULTIPLY = 0x6A;
constexpr int VK_ADD = 0x6B;
constexpr int VK_SUBTRACT = 0x6D;
constexpr int VK_DECIMAL = 0x6E;
constexpr int VK_DIVIDE = 0x6F;
constexpr int VK_F1 = 0x70;
constexpr int VK_F4 = 0x73;

constexpr WORD WA_INACTIVE = 0;
constexpr WORD WA_ACTIVE = 1;

// Keys go to the window that has the focus; while one of this process has the capture, to that one,
// so that a list that never takes the focus can be worked with the arrow keys.
HWND GetFocus();
// Activates the window's top-level window first, unless that one never takes the activation: then
// nothing changes. Null takes the focus away. Returns who had it.
HWND SetFocus(HWND window);

// Negative while the key is down, as of the input message that was fetched last.
SHORT GetKeyState(int virtualKey);
// All 256 keys, 0x80 for what is down. What is set holds until the next real key or pointer input.
BOOL SetKeyboardState(LPBYTE keys);

// ---- Controls (room controls/) ----------------------------------------------------------------

constexpr DWORD SS_LEFT = 0x0000;
constexpr DWORD SS_CENTER = 0x0001;
constexpr DWORD ES_PASSWORD = 0x0020;
constexpr DWORD ES_AUTOHSCROLL = 0x0080;
constexpr DWORD BS_OWNERDRAW = 0x000B; // all buttons here

// In the high word of WM_COMMAND's wParam.
constexpr WORD BN_CLICKED = 0;
constexpr WORD BN_DOUBLECLICKED = 5;
constexpr WORD CBN_SELCHANGE = 1;
constexpr WORD EN_CHANGE = 0x0300;

constexpr UINT ODT_BUTTON = 4;
constexpr UINT ODA_DRAWENTIRE = 0x0001;
constexpr UINT ODA_SELECT = 0x0002;
constexpr UINT ODA_FOCUS = 0x0004;
constexpr UINT ODS_SELECTED = 0x0001;
constexpr UINT ODS_DISABLED = 0x0004;
constexpr UINT ODS_FOCUS = 0x0010;

struct DRAWITEMSTRUCT {
    UINT CtlType; // ODT_BUTTON
    UINT CtlID;
    UINT itemID;
    UINT itemAction; // ODA_...
    UINT itemState;  // ODS_...
    HWND hwndItem;
    HDC hDC;
    RECT rcItem;
    ULONG_PTR itemData;
};
using LPDRAWITEMSTRUCT = DRAWITEMSTRUCT*;

// ---- Cursors and icons ------------------------------------------------------------------------

#define IDC_ARROW MAKEINTRESOURCEW(32512)
#define IDC_IBEAM MAKEINTRESOURCEW(32513)
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
constexpr UINT MF_GRAYED = 0x0001;
constexpr UINT MF_CHECKED = 0x0008;
constexpr UINT MF_SEPARATOR = 0x0800;

constexpr UINT TPM_LEFTALIGN = 0x0000;
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

constexpr DWORD MONITOR_DEFAULTTONULL = 0;
constexpr DWORD MONITOR_DEFAULTTOPRIMARY = 1;
constexpr DWORD MONITOR_DEFAULTTONEAREST = 2;

constexpr DWORD MONITORINFOF_PRIMARY = 1;

struct MONITORINFO {
    DWORD cbSize;
    RECT rcMonitor;
    RECT rcWork; // without what panels take
    DWORD dwFlags;
};
using LPMONITORINFO = MONITORINFO*;

HMONITOR MonitorFromWindow(HWND window, DWORD flags);
BOOL GetMonitorInfoW(HMONITOR monitor, LPMONITORINFO info);

// Pixels of the primary screen; 0 where there is none.
int GetSystemMetrics(int index);
UINT GetDpiForWindow(HWND window);
// Programs are always told the truth about DPI here: TRUE.
BOOL SetProcessDpiAwarenessContext(DPI_AWARENESS_CONTEXT context);

// number * numerator / denominator in 64 bits, halves away from zero; -1 where that does not fit or
// the denominator is 0.
int MulDiv(int number, int numerator, int denominator);

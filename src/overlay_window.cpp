// The overlay as a window: how it comes to be, the messages that it gets, and the order in which
// all of it ends.
#include "overlay_window.h"

#include "dpi.h"
#include "stored_values.h"
#include "window_messages.h"
#include "windows_additions.h"

#include <algorithm>

namespace {

constexpr const WCHAR* kWindowClass = TEXT("KelvarinOverlay");
constexpr const WCHAR* kTooltipClass = TEXT("KelvarinTooltip");
constexpr const WCHAR* kConfigKey = TEXT("Software\\Kelvarin\\Config");

constexpr int kBottomMargin = 80; // pixels between the window and the screen's end, at the start
constexpr COLORREF kEraseColour = 0x010101;

constexpr UINT_PTR kShowTimer = 1;
constexpr UINT kShowDelayMs = 300;

constexpr DWORD kOverlayStyle = WS_EX_TOPMOST | WS_EX_TOOLWINDOW | WS_EX_LAYERED | WS_EX_NOACTIVATE;

// The glyphs are those of the toolbar's buttons that the text speaks of.
constexpr const WCHAR* kFirstRunText = TEXT("Click  \uE713 to setup, then \uE768 to start");

HICON LoadProgramIcon(int size) {
    return static_cast<HICON>(
        LoadImageW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(101), IMAGE_ICON, size, size, 0));
}

int ScreenDpi() {
    HDC screen = GetDC(nullptr);
    const int dpi = GetDeviceCaps(screen, LOGPIXELSX);
    ReleaseDC(nullptr, screen);
    return dpi;
}

} // namespace

// ---- Beginning and end --------------------------------------------------------------------------

OverlayWindow::OverlayWindow() : hInstance_(GetModuleHandleW(nullptr)) {
    if (RegCreateKeyExW(HKEY_CURRENT_USER, kConfigKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                        &configKey_, nullptr) != 0) {
        configKey_ = nullptr; // the program goes on without a store
    }
    gdiplus_ = std::make_unique<GdiplusSession>();
}

OverlayWindow::~OverlayWindow() {
    if (run_ != nullptr) {
        run_->End();
    }
    if (worker_.joinable()) {
        worker_.detach(); // it may be waiting for the network
    }
    if (tooltip_ != nullptr) {
        DestroyWindow(tooltip_);
    }
    transcript_->Close();
    gdiplus_.reset();
    run_.reset();
    translator_.reset();
    tray_.reset();
    popup_.reset();
    if (configKey_ != nullptr) {
        RegCloseKey(configKey_); // behind its last reader
    }
}

int OverlayWindow::Run() {
    RegisterWindowClass();
    if (!CreateOverlay()) {
        return 1;
    }
    ShowWindow(hwnd_, SW_HIDE);
    SetTimer(hwnd_, kShowTimer, kShowDelayMs, nullptr);
    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    return static_cast<int>(message.wParam);
}

void OverlayWindow::RegisterWindowClass() const {
    static bool registered = false;
    if (registered) {
        return;
    }
    registered = true;
    WNDCLASSEXW overlay{};
    overlay.cbSize = sizeof overlay;
    overlay.lpfnWndProc = WindowProcedure;
    overlay.hInstance = hInstance_;
    overlay.hIcon = LoadProgramIcon(32);
    overlay.hIconSm = LoadProgramIcon(16);
    overlay.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    overlay.hbrBackground = CreateSolidBrush(kEraseColour);
    overlay.lpszClassName = kWindowClass;
    RegisterClassExW(&overlay);
}

// At the bottom of the screen, in the middle.
bool OverlayWindow::CreateOverlay() {
    if (const int dpi = ScreenDpi(); dpi > 0) {
        DpiScale = dpi;
    }
    const int smallest = S(kSmallestOverlayHeight);
    const auto stored = static_cast<int>(
        ReadStoredNumber(configKey_, TEXT("window_height"), static_cast<DWORD>(smallest)));
    windowHeight_ = std::max(smallest, stored);
    const int width = S(kOverlayWidth);
    const int left = (GetSystemMetrics(SM_CXSCREEN) - width) / 2;
    const int top = GetSystemMetrics(SM_CYSCREEN) - windowHeight_ - kBottomMargin;
    return CreateWindowExW(kOverlayStyle, kWindowClass, TEXT("Kelvarin"), WS_POPUP, left, top,
                           width, windowHeight_, nullptr, nullptr, hInstance_, this) != nullptr;
}

void OverlayWindow::OnCreate() {
    if (const UINT dpi = GetDpiForWindow(hwnd_); dpi != 0) {
        DpiScale = static_cast<int>(dpi);
    }
    popup_ = std::make_unique<ConfigPopup>(hwnd_, &configKey_,
                                           [this](const ConfigData&) { StartTranslation(); });
    DwmSetWindowAttribute(hwnd_, kWindowCornerPreference, &kRoundCorners, sizeof kRoundCorners);
    tray_ = std::make_unique<TrayIcon>(
        hwnd_, [this] { ToggleOverlay(); }, [this](bool on) { SetClickThrough(on); },
        [this](bool allow) { SetAllowRecording(allow); }, [this] { Exit(); });
    tray_->allowRecording = !excludeFromCapture_;
    status_ = kFirstRunText;
    useMic_ = ReadStoredNumber(configKey_, TEXT("use_mic"), 1) != 0;
    useLoopback_ = ReadStoredNumber(configKey_, TEXT("use_loopback"), 0) != 0;
    CreateTooltip();
}

void OverlayWindow::CreateTooltip() {
    static bool registered = false;
    if (!registered) {
        registered = true;
        WNDCLASSEXW tooltip{};
        tooltip.cbSize = sizeof tooltip;
        tooltip.lpfnWndProc = DefWindowProcW;
        tooltip.hInstance = hInstance_;
        tooltip.lpszClassName = kTooltipClass;
        RegisterClassExW(&tooltip);
    }
    tooltip_ = CreateWindowExW(kOverlayStyle | WS_EX_TRANSPARENT, kTooltipClass, nullptr, WS_POPUP,
                               0, 0, 1, 1, nullptr, nullptr, hInstance_, nullptr);
    if (tooltip_ != nullptr) {
        ShowWindow(tooltip_, SW_HIDE);
    }
}

// ---- Messages -----------------------------------------------------------------------------------

LRESULT CALLBACK OverlayWindow::WindowProcedure(HWND hwnd, UINT message, WPARAM wParam,
                                                LPARAM lParam) {
    OverlayWindow* overlay = nullptr;
    if (message == WM_NCCREATE) {
        const auto* creation = reinterpret_cast<const CREATESTRUCTW*>(lParam);
        overlay = static_cast<OverlayWindow*>(creation->lpCreateParams);
        SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(overlay));
        overlay->hwnd_ = hwnd;
    } else {
        overlay = reinterpret_cast<OverlayWindow*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    }
    return overlay != nullptr ? overlay->HandleMessage(message, wParam, lParam)
                              : DefWindowProcW(hwnd, message, wParam, lParam);
}

LRESULT OverlayWindow::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_CREATE:
        OnCreate();
        return 0;
    case WM_DESTROY:
        OnDestroy();
        return 0;
    case WM_PAINT:
        OnPaint();
        return 0;
    case WM_CLOSE:
        HideOverlay();
        return 0;
    case WM_ERASEBKGND:
        EraseBackground(reinterpret_cast<HDC>(wParam));
        return 1;
    case WM_SETCURSOR:
        if (ShowResizeCursor()) {
            return 1;
        }
        break;
    case WM_TIMER:
        if (wParam == kShowTimer) {
            OnTimer();
            return 0;
        }
        break;
    case WM_MOUSEMOVE:
        OnMouseMove(SignedLow(lParam), SignedHigh(lParam), wParam);
        return 0;
    case WM_LBUTTONDOWN:
        OnLeftButtonDown(SignedLow(lParam), SignedHigh(lParam));
        return 0;
    case WM_LBUTTONUP:
        OnLeftButtonUp();
        return 0;
    case WM_MOUSEWHEEL:
        OnMouseWheel(SignedHigh(static_cast<std::intptr_t>(wParam)));
        return 0;
    case WM_CAPTURECHANGED:
        OnCaptureChanged();
        return 0;
    case WM_MOUSELEAVE:
        OnMouseLeave();
        return 0;
    case WM_DPICHANGED:
        OnDpiChanged(*reinterpret_cast<const RECT*>(lParam));
        return 0;
    case kMsgTray:
        OnTray(lParam);
        return 0;
    case kMsgResult:
        OnResults(wParam, lParam);
        return 0;
    case kMsgError:
        if (const auto raw = TakeText(lParam)) {
            OnTranslationError(*raw);
        }
        return 0;
    case kMsgStarted:
        OnTranslationStarted();
        return 0;
    case kMsgStopped:
        OnTranslationStopped();
        return 0;
    case kMsgSources:
        OnSources(static_cast<UINT>(wParam), lParam != 0);
        return 0;
    default:
        break;
    }
    return DefWindowProcW(hwnd_, message, wParam, lParam);
}

void OverlayWindow::OnTimer() {
    KillTimer(hwnd_, kShowTimer);
    ApplyCaptureExclusion();
    SetTransparentToInput(false);
    ShowWindow(hwnd_, SW_SHOW);
    Repaint(); // not every system asks for a layered window's first picture
}

void OverlayWindow::OnPaint() {
    PAINTSTRUCT paint;
    BeginPaint(hwnd_, &paint);
    RECT client;
    GetClientRect(hwnd_, &client);
    RenderOverlay(client.right, client.bottom);
    EndPaint(hwnd_, &paint);
}

void OverlayWindow::EraseBackground(HDC dc) const {
    RECT client;
    GetClientRect(hwnd_, &client);
    HBRUSH brush = CreateSolidBrush(kEraseColour);
    FillRect(dc, &client, brush);
    DeleteObject(brush);
}

// Results that had come before the end are kept: they may be in no file yet.
void OverlayWindow::OnDestroy() {
    MSG waiting;
    while (PeekMessageW(&waiting, hwnd_, kMsgResult, kMsgError, PM_REMOVE) != FALSE) {
        if (waiting.message == kMsgError) {
            TakeText(waiting.lParam);
        } else if (const auto result = TakeResult(waiting.lParam)) {
            OnResult(*result, waiting.wParam != 0);
        }
    }
    PostQuitMessage(0);
}

void OverlayWindow::OnDpiChanged(const RECT& suggested) {
    DpiScale = static_cast<int>(GetDpiForWindow(hwnd_));
    SetWindowPos(hwnd_, nullptr, suggested.left, suggested.top, suggested.right - suggested.left,
                 suggested.bottom - suggested.top, SWP_NOZORDER | SWP_NOACTIVATE);
    windowHeight_ = std::max(windowHeight_, S(kSmallestOverlayHeight));
    if (popup_->IsVisible()) {
        popup_->Reposition();
    }
    Repaint();
}

void OverlayWindow::OnTray(LPARAM event) {
    if (tray_ == nullptr) {
        return;
    }
    switch (event) {
    case WM_RBUTTONUP:
    case WM_CONTEXTMENU:
        tray_->ShowMenu();
        break;
    case WM_LBUTTONUP:
    case WM_LBUTTONDBLCLK:
        tray_->ToggleWindow();
        break;
    default:
        break;
    }
}

// ---- Showing and hiding -------------------------------------------------------------------------

// Whatever is invalid, the whole overlay is painted.
void OverlayWindow::Repaint() const {
    InvalidateRect(hwnd_, nullptr, FALSE);
    UpdateWindow(hwnd_);
}

void OverlayWindow::RepaintToolbar() const {
    const RECT toolbar{0, 0, S(kOverlayWidth), S(kHeaderHeight)};
    InvalidateRect(hwnd_, &toolbar, FALSE);
    UpdateWindow(hwnd_);
}

void OverlayWindow::HideOverlay() {
    ShowWindow(hwnd_, SW_HIDE);
    if (tray_ != nullptr) {
        tray_->windowVisible = false;
    }
}

void OverlayWindow::ToggleOverlay() {
    const bool visible = IsWindowVisible(hwnd_) != FALSE;
    ShowWindow(hwnd_, visible ? SW_HIDE : SW_SHOW);
    tray_->windowVisible = !visible;
}

void OverlayWindow::SetClickThrough(bool clickThrough) {
    clickThrough_ = clickThrough;
    SetTransparentToInput(clickThrough);
    tray_->clickThrough = clickThrough;
    Repaint();
}

void OverlayWindow::SetTransparentToInput(bool transparent) const {
    constexpr LONG_PTR kBoth = WS_EX_LAYERED | WS_EX_TRANSPARENT;
    const LONG_PTR style = GetWindowLongPtrW(hwnd_, GWL_EXSTYLE);
    SetWindowLongPtrW(hwnd_, GWL_EXSTYLE,
                      transparent ? style | kBoth : (style & ~kBoth) | WS_EX_LAYERED);
}

void OverlayWindow::SetAllowRecording(bool allow) {
    excludeFromCapture_ = !allow;
    ApplyCaptureExclusion();
    tray_->allowRecording = allow;
}

void OverlayWindow::ApplyCaptureExclusion() const {
    SetWindowDisplayAffinity(hwnd_, excludeFromCapture_ ? WDA_EXCLUDEFROMCAPTURE : WDA_NONE);
}

void OverlayWindow::Exit() {
    tray_->windowVisible = false;
    if (run_ != nullptr) {
        run_->End();
    }
    DestroyWindow(hwnd_);
}

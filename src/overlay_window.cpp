// The overlay as a window: how it comes to be, the messages that it gets, and the order in which
// all of it ends.
#include "overlay_window.h"

#include "dpi.h"
#include "stored_values.h"
#include "theme.h"
#include "window_class.h"
#include "window_messages.h"
#include "windows_additions.h"

#include <algorithm>

namespace {

constexpr int kBottomMargin = 80; // pixels between the window and the screen's end, at the start

constexpr UINT_PTR kShowTimer = 1;
constexpr UINT kShowDelayMs = 300;

constexpr DWORD kOverlayStyle = WS_EX_TOPMOST | WS_EX_TOOLWINDOW | WS_EX_LAYERED | WS_EX_NOACTIVATE;

// With the icons of the buttons that it speaks of.
WideString FirstRunText() {
    return WideString(TEXT("Click  ")) + theme::kSettingsIcon + TEXT(" to setup, then ") +
           theme::kStartIcon + TEXT(" to start");
}

int ScreenDpi() {
    const ScreenContext screen;
    return GetDeviceCaps(screen.get(), LOGPIXELSX);
}

} // namespace

// ---- Beginning and end --------------------------------------------------------------------------

OverlayWindow::OverlayWindow() : hInstance_(GetModuleHandleW(nullptr)) {
    // Without a key the program goes on, and stores nothing.
    RegCreateKeyExW(HKEY_CURRENT_USER, stored::kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                    configKey_.Receive(), nullptr);
    gdiplus_ = std::make_unique<GdiplusSession>();
}

OverlayWindow::~OverlayWindow() {
    if (run_ != nullptr) {
        run_->End();
    }
    if (worker_.joinable()) {
        worker_.detach(); // it may be waiting for the network
    }
    tooltip_.Reset();
    transcript_->Close();
    gdiplus_.reset();
    run_.reset();
    translator_.reset();
    tray_.reset();
    popup_.reset();
    configKey_.Reset(); // after popup_, which reads it
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
    RegisterClassOnce(kOverlayClass, WindowProcedure, [](WNDCLASSEXW& overlay) {
        overlay.hIcon = LoadProgramIcon(32);
        overlay.hIconSm = LoadProgramIcon(16);
        overlay.hCursor = LoadCursorW(nullptr, IDC_ARROW);
        overlay.hbrBackground = CreateSolidBrush(theme::kWindowClear);
    });
}

// At the bottom of the screen, in the middle.
bool OverlayWindow::CreateOverlay() {
    if (const int dpi = ScreenDpi(); dpi > 0) {
        DpiScale = dpi;
    }
    const int smallest = S(kSmallestOverlayHeight);
    const auto stored = static_cast<int>(
        ReadStoredNumber(configKey_.get(), stored::kWindowHeight, static_cast<DWORD>(smallest)));
    windowHeight_ = std::max(smallest, stored);
    const int width = S(kOverlayWidth);
    const int left = (GetSystemMetrics(SM_CXSCREEN) - width) / 2;
    const int top = GetSystemMetrics(SM_CYSCREEN) - windowHeight_ - kBottomMargin;
    return CreateWindowExW(kOverlayStyle, kOverlayClass, TEXT("Kelvarin"), WS_POPUP, left, top,
                           width, windowHeight_, nullptr, nullptr, hInstance_, this) != nullptr;
}

void OverlayWindow::OnCreate() {
    if (const UINT dpi = GetDpiForWindow(hwnd_); dpi != 0) {
        DpiScale = static_cast<int>(dpi);
    }
    popup_ = std::make_unique<ConfigPopup>(hwnd_, &configKey_.get(),
                                           [this](const ConfigData&) { StartTranslation(); });
    DwmSetWindowAttribute(hwnd_, kWindowCornerPreference, &kRoundCorners, sizeof kRoundCorners);
    tray_ = std::make_unique<TrayIcon>(
        hwnd_, [this] { ToggleOverlay(); }, [this](bool on) { SetClickThrough(on); },
        [this](bool allow) { SetAllowRecording(allow); }, [this] { Exit(); });
    tray_->allowRecording = !excludeFromCapture_;
    status_ = FirstRunText();
    useMic_ = ReadStoredNumber(configKey_.get(), stored::kUseMic, 1) != 0;
    useLoopback_ = ReadStoredNumber(configKey_.get(), stored::kUseLoopback, 0) != 0;
    CreateTooltip();
}

void OverlayWindow::CreateTooltip() {
    RegisterClassOnce(kTooltipClass, DefWindowProcW, [](WNDCLASSEXW& /*tooltip*/) {});
    tooltip_.Reset(CreateWindowExW(kOverlayStyle | WS_EX_TRANSPARENT, kTooltipClass, nullptr,
                                   WS_POPUP, 0, 0, 1, 1, nullptr, nullptr, hInstance_, nullptr));
    if (tooltip_) {
        ShowWindow(tooltip_.get(), SW_HIDE);
    }
}

// ---- Messages -----------------------------------------------------------------------------------

LRESULT CALLBACK OverlayWindow::WindowProcedure(HWND hwnd, UINT message, WPARAM wParam,
                                                LPARAM lParam) {
    auto* const overlay = ObjectOf<OverlayWindow>(hwnd, message, lParam);
    if (overlay == nullptr) {
        return DefWindowProcW(hwnd, message, wParam, lParam);
    }
    overlay->hwnd_ = hwnd;
    return overlay->HandleMessage(message, wParam, lParam);
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
    const PaintContext paint(hwnd_);
    RECT client;
    GetClientRect(hwnd_, &client);
    RenderOverlay(client.right, client.bottom);
}

void OverlayWindow::EraseBackground(HDC dc) const {
    RECT client;
    GetClientRect(hwnd_, &client);
    const GdiBrushOwner brush(CreateSolidBrush(theme::kWindowClear));
    FillRect(dc, &client, brush.get());
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

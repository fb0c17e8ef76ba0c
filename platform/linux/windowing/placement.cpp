// Showing, hiding and placing windows, and the screens that they stand on.
#include "windowing/placement.h"

#include "application/application.h"
#include "windowing/focus.h"
#include "windowing/foreign_windows.h"
#include "windowing/painting_cycle.h"
#include "windowing/pointer.h"
#include "windowing/surface.h"
#include "windowing/window_table.h"

#include <QApplication>
#include <QScreen>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace windowing {

namespace {

bool ActivatesWith(int command) {
    return command != SW_SHOWNOACTIVATE && command != SW_SHOWNA;
}

void TellPart(const Window& window) {
    if (window.part != nullptr) {
        window.part->Follow(window);
    }
    for (const HWND child : window.children) {
        TellPart(*Find(child));
    }
}

void Hide(Window& window) {
    window.visible = false;
    window.style &= ~WS_VISIBLE;
    TellPart(window);
    if (window.surface != nullptr) {
        window.surface->hide();
    }
    InvalidateBehind(window);
    DropCaptureOf(window.handle);
    LeaveFocusToParent(window);
}

void SetRect(Window& window, const RECT& rect) {
    const bool resized =
        rect.right - rect.left != window.Width() || rect.bottom - rect.top != window.Height();
    InvalidateBehind(window);
    window.rect = rect;
    if (resized || window.IsChild()) {
        Invalidate(window, window.Client(), true);
    }
    InvalidateBehind(window);
    TellPart(window);
}

// Above all others, with the windows that it owns above it, as Windows keeps them.
void BringToTop(const Window& topLevel, bool activate) {
    RaiseInStack(topLevel.handle);
    topLevel.surface->Raise(activate);
    for (const auto& owned : OwnedBy(topLevel.handle)) {
        if (owned->visible) {
            BringToTop(*owned, false);
        }
    }
}

LONG Scaled(LONG length, UINT newDpi, UINT oldDpi) {
    return MulDiv(length, static_cast<int>(newDpi), static_cast<int>(oldDpi));
}

void CheckAllDpi() {
    for (const auto& window : TopLevels()) {
        CheckDpi(*window);
    }
}

void WatchScreen(QScreen* screen) {
    QObject::connect(screen, &QScreen::logicalDotsPerInchChanged, screen, CheckAllDpi);
}

} // namespace

bool Show(Window& window, int command) {
    const bool before = window.visible;
    if (command == SW_HIDE) {
        if (before) {
            Hide(window);
        }
        return before;
    }
    if (!before) {
        window.visible = true;
        window.style |= WS_VISIBLE;
        Invalidate(window, window.Client(), true);
        TellPart(window);
    }
    if (window.IsChild()) {
        return before;
    }
    const bool activates = ActivatesWith(command);
    RaiseInStack(window.handle);
    window.surface->ShowOnTop(activates);
    if (activates) {
        Activate(window.handle);
    }
    return before;
}

UINT DpiAt(const RECT& rect) {
    const QPoint middle(rect.left + (rect.right - rect.left) / 2,
                        rect.top + (rect.bottom - rect.top) / 2);
    const QScreen* screen = QGuiApplication::screenAt(middle);
    if (screen == nullptr) {
        screen = QGuiApplication::primaryScreen();
    }
    constexpr UINT kUsualDpi = 96;
    return screen == nullptr ? kUsualDpi
                             : static_cast<UINT>(std::lround(screen->logicalDotsPerInch()));
}

void CheckDpi(Window& window) {
    const UINT dpi = DpiAt(window.rect);
    const UINT before = window.dpi;
    if (dpi == before || window.destroying) {
        return;
    }
    window.dpi = dpi;
    RECT suggested = window.rect;
    suggested.right = suggested.left + Scaled(window.Width(), dpi, before);
    suggested.bottom = suggested.top + Scaled(window.Height(), dpi, before);
    Send(window, WM_DPICHANGED, MAKEWPARAM(dpi, dpi), reinterpret_cast<LPARAM>(&suggested));
}

void WatchScreens() {
    for (QScreen* screen : QGuiApplication::screens()) {
        WatchScreen(screen);
    }
    QObject::connect(qGuiApp, &QGuiApplication::screenAdded, qGuiApp, WatchScreen);
}

void Moved(Window& window, const RECT& rect) {
    SetRect(window, rect);
    CheckDpi(window);
}

} // namespace windowing

using windowing::Find;
using windowing::Window;

BOOL ShowWindow(HWND handle, int command) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr) {
        return windowing::ShowForeignWindow(handle, command) ? TRUE : FALSE;
    }
    return windowing::Show(*window, command) ? TRUE : FALSE;
}

BOOL SetForegroundWindow(HWND handle) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr) {
        return windowing::RaiseForeignWindow(handle) ? TRUE : FALSE;
    }
    if (window->IsChild()) {
        return FALSE;
    }
    windowing::BringToTop(*window, true);
    if (window->visible) {
        windowing::Activate(handle);
    }
    return TRUE;
}

BOOL IsWindowVisible(HWND handle) {
    const std::shared_ptr<Window> window = Find(handle);
    return window != nullptr && windowing::Shows(*window) ? TRUE : FALSE;
}

BOOL SetWindowPos(HWND handle, HWND /*insertAfter*/, int x, int y, int width, int height,
                  UINT flags) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr) {
        return FALSE;
    }
    RECT rect = window->rect;
    if ((flags & SWP_NOMOVE) == 0) {
        rect = {x, y, x + window->Width(), y + window->Height()};
    }
    if ((flags & SWP_NOSIZE) == 0) {
        rect.right = rect.left + std::max(width, 0);
        rect.bottom = rect.top + std::max(height, 0);
    }
    windowing::SetRect(*window, rect);
    if (window->surface != nullptr) {
        window->surface->Place(rect);
    }
    if ((flags & SWP_HIDEWINDOW) != 0) {
        windowing::Show(*window, SW_HIDE);
    }
    const bool activates = (flags & SWP_NOACTIVATE) == 0;
    if ((flags & SWP_SHOWWINDOW) != 0) {
        windowing::Show(*window, activates ? SW_SHOW : SW_SHOWNOACTIVATE);
    } else if ((flags & SWP_NOZORDER) == 0 && window->visible && !window->IsChild()) {
        windowing::BringToTop(*window, activates);
    }
    if (!window->IsChild()) {
        windowing::CheckDpi(*window);
    }
    return TRUE;
}

BOOL GetWindowRect(HWND handle, LPRECT rect) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr || rect == nullptr) {
        return FALSE;
    }
    *rect = windowing::RectOnScreen(*window);
    return TRUE;
}

BOOL GetClientRect(HWND handle, LPRECT rect) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr || rect == nullptr) {
        return FALSE;
    }
    *rect = window->Client();
    return TRUE;
}

BOOL ClientToScreen(HWND handle, LPPOINT point) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr || point == nullptr) {
        return FALSE;
    }
    const POINT origin = windowing::OriginOnScreen(*window);
    *point = {point->x + origin.x, point->y + origin.y};
    return TRUE;
}

BOOL ScreenToClient(HWND handle, LPPOINT point) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr || point == nullptr) {
        return FALSE;
    }
    const POINT origin = windowing::OriginOnScreen(*window);
    *point = {point->x - origin.x, point->y - origin.y};
    return TRUE;
}

BOOL PtInRect(const RECT* rect, POINT point) {
    return rect != nullptr && windowing::Contains(*rect, point) ? TRUE : FALSE;
}

BOOL SetWindowDisplayAffinity(HWND /*window*/, DWORD /*affinity*/) {
    return FALSE;
}

int GetSystemMetrics(int index) {
    if ((index != SM_CXSCREEN && index != SM_CYSCREEN) || application::Instance() == nullptr) {
        return 0;
    }
    const QScreen* screen = QGuiApplication::primaryScreen();
    const QSize size = screen != nullptr ? screen->size() : QSize(0, 0);
    return index == SM_CXSCREEN ? size.width() : size.height();
}

UINT GetDpiForWindow(HWND handle) {
    const std::shared_ptr<Window> window = Find(handle);
    return window == nullptr ? 0 : windowing::TopLevelOf(*window).dpi;
}

BOOL SetProcessDpiAwarenessContext(DPI_AWARENESS_CONTEXT /*context*/) {
    return TRUE;
}

int MulDiv(int number, int numerator, int denominator) {
    if (denominator == 0) {
        return -1;
    }
    const std::int64_t product = std::int64_t{number} * numerator;
    const bool negative = (product < 0) != (denominator < 0);
    const std::int64_t divisor =
        std::int64_t{denominator} < 0 ? -std::int64_t{denominator} : std::int64_t{denominator};
    const std::int64_t rounded = ((product < 0 ? -product : product) + divisor / 2) / divisor;
    const std::int64_t result = negative ? -rounded : rounded;
    using Limits = std::numeric_limits<int>;
    return result < Limits::min() || result > Limits::max() ? -1 : static_cast<int>(result);
}

// Screens as monitors.
#include "application/application.h"
#include "windowing/window_table.h"

#include <QGuiApplication>
#include <QScreen>

#include <algorithm>
#include <cstdint>

namespace windowing {

namespace {

RECT ToRect(const QRect& rect) {
    return {rect.x(), rect.y(), rect.x() + rect.width(), rect.y() + rect.height()};
}

std::int64_t AreaOf(const RECT& rect) {
    return IsEmpty(rect) ? 0 : std::int64_t{rect.right - rect.left} * (rect.bottom - rect.top);
}

// Squared, from edge to edge.
std::int64_t DistanceOf(const RECT& one, const RECT& other) {
    const std::int64_t x = std::max({other.left - one.right, one.left - other.right, LONG{0}});
    const std::int64_t y = std::max({other.top - one.bottom, one.top - other.bottom, LONG{0}});
    return x * x + y * y;
}

// The one that shows most of it, else the one that it is nearest to.
QScreen* NearestScreen(const RECT& rect) {
    const auto screens = QGuiApplication::screens();
    const auto nearer = [&](const QScreen* one, const QScreen* other) {
        const RECT first = ToRect(one->geometry());
        const RECT second = ToRect(other->geometry());
        const std::int64_t firstArea = AreaOf(Common(rect, first));
        const std::int64_t secondArea = AreaOf(Common(rect, second));
        return firstArea != secondArea ? firstArea > secondArea
                                       : DistanceOf(rect, first) < DistanceOf(rect, second);
    };
    const auto found = std::min_element(screens.begin(), screens.end(), nearer);
    return found == screens.end() ? nullptr : *found;
}

QScreen* ScreenOf(const RECT& rect, DWORD flags) {
    QScreen* nearest = NearestScreen(rect);
    const bool shown = nearest != nullptr && AreaOf(Common(rect, ToRect(nearest->geometry()))) > 0;
    if (shown || flags == MONITOR_DEFAULTTONEAREST) {
        return nearest;
    }
    return flags == MONITOR_DEFAULTTOPRIMARY ? QGuiApplication::primaryScreen() : nullptr;
}

// A monitor is the address of its screen, which is looked for before it is used.
const QScreen* FindScreen(HMONITOR monitor) {
    const auto screens = QGuiApplication::screens();
    const auto found = std::find_if(screens.begin(), screens.end(), [&](const QScreen* screen) {
        return static_cast<const void*>(screen) == static_cast<const void*>(monitor);
    });
    return found == screens.end() ? nullptr : *found;
}

} // namespace
} // namespace windowing

HMONITOR MonitorFromWindow(HWND handle, DWORD flags) {
    if (application::Instance() == nullptr) {
        return nullptr;
    }
    const auto window = windowing::Find(handle);
    const RECT rect = window != nullptr ? windowing::RectOnScreen(*window) : RECT{};
    return reinterpret_cast<HMONITOR>(windowing::ScreenOf(rect, flags));
}

BOOL GetMonitorInfoW(HMONITOR monitor, LPMONITORINFO info) {
    const QScreen* screen =
        application::Instance() == nullptr ? nullptr : windowing::FindScreen(monitor);
    if (screen == nullptr || info == nullptr || info->cbSize != sizeof(MONITORINFO)) {
        return FALSE;
    }
    info->rcMonitor = windowing::ToRect(screen->geometry());
    info->rcWork = windowing::ToRect(screen->availableGeometry());
    info->dwFlags = screen == QGuiApplication::primaryScreen() ? MONITORINFOF_PRIMARY : 0;
    return TRUE;
}

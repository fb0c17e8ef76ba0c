// From what is invalid to what is seen: WM_PAINT's calls, layered windows, rounded corners.
#include "windowing/pushed_picture.h"

#include "painting/picture.h"
#include "windowing/pixels.h"
#include "windowing/surface.h"
#include "windowing/window.h"
#include "windowing/x11.h"

#include <commctrl.h>
#include <dwmapi.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace windowing {

namespace {

constexpr int kCornerRadius = 8; // at 96 DPI
constexpr unsigned kOpaque = 255;

RECT Joined(const RECT& one, const RECT& other) {
    if (IsEmpty(one)) {
        return other;
    }
    return {std::min(one.left, other.left), std::min(one.top, other.top),
            std::max(one.right, other.right), std::max(one.bottom, other.bottom)};
}

RECT Clipped(const RECT& rect, const Window& window) {
    return {std::max(rect.left, LONG{0}), std::max(rect.top, LONG{0}),
            std::min(rect.right, LONG{window.Width()}),
            std::min(rect.bottom, LONG{window.Height()})};
}

// What is drawn on a layered window's context is never seen, so it gets the least of canvases.
QSize CanvasSize(const Window& window) {
    return window.Layered() ? QSize(1, 1)
                            : QSize(std::max(window.Width(), 1), std::max(window.Height(), 1));
}

void FitCanvas(Window& window) {
    const QSize size = CanvasSize(window);
    if (window.canvas.size() != size) {
        window.canvas = QImage(size, QImage::Format_ARGB32_Premultiplied);
        window.canvas.fill(Qt::transparent);
    }
}

void RoundIfWanted(const Window& window, QImage& picture) {
    if (window.rounded) {
        RoundCorners(picture, MulDiv(kCornerRadius, static_cast<int>(window.dpi), 96));
    }
}

void PresentCanvas(Window& window) {
    QImage picture = window.canvas.copy();
    RoundIfWanted(window, picture);
    window.surface->Present(picture, HasCompositor());
}

// Memory for the next picture of the window: the present one's, where that fits.
QImage NextPicture(Window& window, QSize size) {
    QImage picture = window.surface->TakePicture();
    if (picture.size() != size) {
        picture = QImage(size, QImage::Format_ARGB32_Premultiplied);
    }
    return picture;
}

// `rect` is the part of the source's picture, and `blend` what it is shown with.
bool Push(Window& window, const QImage& source, const QRect& rect, const BLENDFUNCTION& blend) {
    QImage picture = NextPicture(window, rect.size());
    if (picture.isNull()) {
        return false;
    }
    const bool composited = HasCompositor();
    const bool pixelAlpha = (blend.AlphaFormat & AC_SRC_ALPHA) != 0;
    CopyWithAlpha(source, rect.topLeft(), pixelAlpha,
                  composited ? blend.SourceConstantAlpha : kOpaque, picture);
    RoundIfWanted(window, picture);
    window.surface->Present(picture, composited);
    return true;
}

void MoveTo(const Window& window, const POINT* position, const SIZE* size) {
    const POINT to = position != nullptr ? *position : POINT{window.rect.left, window.rect.top};
    const SIZE extent = size != nullptr ? *size : SIZE{window.Width(), window.Height()};
    const bool stays = to.x == window.rect.left && to.y == window.rect.top &&
                       extent.cx == window.Width() && extent.cy == window.Height();
    if (!stays) {
        SetWindowPos(window.handle, nullptr, to.x, to.y, extent.cx, extent.cy,
                     SWP_NOZORDER | SWP_NOACTIVATE);
    }
}

} // namespace

QImage PushedPicture(HWND handle) {
    const std::shared_ptr<Window> window = Find(handle);
    return window == nullptr ? QImage() : window->surface->Picture();
}

} // namespace windowing

using windowing::Find;
using windowing::Window;

BOOL InvalidateRect(HWND handle, const RECT* rect, BOOL erase) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr) {
        return FALSE;
    }
    const RECT client{0, 0, window->Width(), window->Height()};
    const RECT part = windowing::Clipped(rect != nullptr ? *rect : client, *window);
    if (!windowing::IsEmpty(part)) {
        window->invalid = windowing::Joined(window->invalid, part);
        window->eraseWanted = window->eraseWanted || erase != FALSE;
    }
    return TRUE;
}

BOOL UpdateWindow(HWND handle) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr) {
        return FALSE;
    }
    if (window->visible && !windowing::IsEmpty(window->invalid)) {
        windowing::Send(*window, WM_PAINT, 0, 0);
    }
    return TRUE;
}

HDC BeginPaint(HWND handle, LPPAINTSTRUCT paint) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr || paint == nullptr || window->canvasContext != nullptr) {
        return nullptr;
    }
    *paint = {};
    paint->rcPaint = std::exchange(window->invalid, RECT{});
    const bool erase = std::exchange(window->eraseWanted, false);
    windowing::FitCanvas(*window);
    window->canvasContext = painting::OpenContext(window->canvas);
    paint->hdc = window->canvasContext;
    if (erase) {
        const auto context = reinterpret_cast<WPARAM>(paint->hdc);
        paint->fErase = windowing::Send(*window, WM_ERASEBKGND, context, 0) == 0 ? TRUE : FALSE;
    }
    return paint->hdc;
}

BOOL EndPaint(HWND handle, const PAINTSTRUCT* paint) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr || paint == nullptr || window->canvasContext == nullptr) {
        return FALSE;
    }
    painting::CloseContext(std::exchange(window->canvasContext, nullptr));
    if (!window->Layered()) {
        windowing::PresentCanvas(*window);
    }
    return TRUE;
}

BOOL UpdateLayeredWindow(HWND handle, HDC /*destination*/, POINT* position, SIZE* size, HDC source,
                         POINT* sourcePosition, COLORREF /*colourKey*/, BLENDFUNCTION* blend,
                         DWORD flags) {
    const std::shared_ptr<Window> window = Find(handle);
    const QImage* picture = source != nullptr ? painting::PictureOf(source) : nullptr;
    if (window == nullptr || !window->Layered() || picture == nullptr || size == nullptr ||
        sourcePosition == nullptr || blend == nullptr || flags != ULW_ALPHA) {
        return FALSE;
    }
    const QRect part(sourcePosition->x, sourcePosition->y, size->cx, size->cy);
    if (part.isEmpty() || !picture->rect().contains(part)) {
        return FALSE;
    }
    windowing::MoveTo(*window, position, size);
    return windowing::Push(*window, *picture, part, *blend) ? TRUE : FALSE;
}

HRESULT DwmSetWindowAttribute(HWND handle, DWORD attribute, LPCVOID value, DWORD bytes) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr || attribute != DWMWA_WINDOW_CORNER_PREFERENCE || value == nullptr ||
        bytes != sizeof(DWORD)) {
        return E_INVALIDARG;
    }
    DWORD preference = 0;
    std::memcpy(&preference, value, sizeof preference);
    window->rounded = preference == DWMWCP_ROUND;
    return S_OK;
}

BOOL InitCommonControlsEx(const INITCOMMONCONTROLSEX* classes) {
    return classes != nullptr && classes->dwSize == sizeof(INITCOMMONCONTROLSEX) ? TRUE : FALSE;
}

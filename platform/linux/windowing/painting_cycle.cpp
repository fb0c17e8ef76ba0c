#include "windowing/painting_cycle.h"

#include "painting/picture.h"
#include "windowing/pixels.h"
#include "windowing/pushed_picture.h"
#include "windowing/surface.h"
#include "windowing/window_table.h"
#include "windowing/x11.h"

#include <QPainter>
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

// What is drawn on a layered window's context is never seen, so it gets the least of canvases.
QSize CanvasSize(const Window& window) {
    return window.Layered() ? QSize(1, 1)
                            : QSize(std::max(window.Width(), 1), std::max(window.Height(), 1));
}

// The canvas stays as it is while somebody draws on it.
void FitCanvas(Window& top) {
    const QSize size = CanvasSize(top);
    if (top.canvas.size() != size && top.openContexts == 0) {
        top.canvas = QImage(size, QImage::Format_ARGB32_Premultiplied);
        top.canvas.fill(Qt::transparent);
    }
}

// The part of the top-level window's client area that the window can be seen in, in its own
// coordinates: what stands in others ends with them.
RECT VisiblePart(const Window& window) {
    if (!window.IsChild()) {
        return window.Client();
    }
    const RECT parent = VisiblePart(*Find(window.parent));
    return Common(window.Client(), Shifted(parent, -window.rect.left, -window.rect.top));
}

void OpenCanvas(Window& window, const RECT& part) {
    Window& top = TopLevelOf(window);
    FitCanvas(top);
    const POINT origin = OriginInTopLevel(window);
    const RECT clip = Common(part, VisiblePart(window));
    window.canvasContext =
        painting::OpenContext(top.canvas, origin, Shifted(clip, origin.x, origin.y));
    top.openContexts += window.canvasContext != nullptr ? 1 : 0;
}

// What the window's painting has covered, its children have to paint anew.
void InvalidateChildren(const Window& window, const RECT& part, bool erase) {
    for (const HWND handle : window.children) {
        const auto child = Find(handle);
        Invalidate(*child, Shifted(part, -child->rect.left, -child->rect.top), erase);
    }
}

bool HasInvalidPart(const Window& window) {
    if (!window.visible) {
        return false;
    }
    return !IsEmpty(window.invalid) ||
           std::any_of(window.children.begin(), window.children.end(),
                       [](HWND child) { return HasInvalidPart(*Find(child)); });
}

HWND FirstInvalid(const Window& window) {
    if (!window.visible) {
        return nullptr;
    }
    if (!IsEmpty(window.invalid)) {
        return window.handle;
    }
    // The oldest lies above the others, so it is painted last.
    for (auto child = window.children.rbegin(); child != window.children.rend(); ++child) {
        if (const HWND first = FirstInvalid(*Find(*child))) {
            return first;
        }
    }
    return nullptr;
}

void RoundIfWanted(const Window& window, QImage& picture) {
    if (window.rounded) {
        RoundCorners(picture, MulDiv(kCornerRadius, static_cast<int>(window.dpi), 96));
    }
}

// Memory for the next picture of the window: the present one's, where that fits.
QImage NextPicture(Window& window, QSize size) {
    QImage picture = window.surface->TakePicture();
    if (picture.size() != size) {
        picture = QImage(size, QImage::Format_ARGB32_Premultiplied);
    }
    return picture;
}

// What is no layered window is opaque.
void PresentCanvas(Window& top) {
    QImage picture = NextPicture(top, top.canvas.size());
    CopyWithAlpha(top.canvas, {0, 0}, false, kOpaque, picture);
    RoundIfWanted(top, picture);
    top.surface->Present(picture, HasCompositor());
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

// What Qt itself shows of controls lies above the picture.
void DrawParts(const Window& window, QPainter& painter) {
    for (const HWND handle : window.children) {
        const auto child = Find(handle);
        if (child->visible && child->part != nullptr) {
            child->part->DrawOn(painter);
        }
        DrawParts(*child, painter);
    }
}

// As Windows does, with the windows that stand in it.
void PaintNow(Window& window) {
    if (!window.visible) {
        return;
    }
    if (!IsEmpty(window.invalid)) {
        Send(window, WM_PAINT, 0, 0);
    }
    const auto children = window.children;
    for (auto handle = children.rbegin(); handle != children.rend(); ++handle) {
        if (const auto child = Find(*handle)) {
            PaintNow(*child);
        }
    }
}

} // namespace

void Invalidate(Window& window, const RECT& part, bool erase) {
    const RECT within = Common(part, window.Client());
    if (IsEmpty(within)) {
        return;
    }
    window.invalid = Joined(window.invalid, within);
    window.eraseWanted = window.eraseWanted || erase;
    InvalidateChildren(window, within, erase);
}

void InvalidateBehind(const Window& child) {
    if (const auto parent = Find(child.parent)) {
        Invalidate(*parent, child.rect, true);
    }
}

HWND FirstToPaint(const MessageFilter& filter) {
    for (const auto& top : TopLevels()) {
        const HWND first = FirstInvalid(*top);
        if (first != nullptr && filter.Takes(first, WM_PAINT)) {
            return first;
        }
    }
    return nullptr;
}

void CloseCanvas(Window& window) {
    if (window.canvasContext != nullptr) {
        painting::CloseContext(std::exchange(window.canvasContext, nullptr));
        --TopLevelOf(window).openContexts;
    }
}

QImage PushedPicture(HWND handle) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr || window->IsChild()) {
        return {};
    }
    QImage picture = window->surface->Picture();
    QPainter painter(&picture);
    DrawParts(*window, painter);
    return picture;
}

} // namespace windowing

using windowing::Find;
using windowing::Window;

BOOL InvalidateRect(HWND handle, const RECT* rect, BOOL erase) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr) {
        return FALSE;
    }
    windowing::Invalidate(*window, rect != nullptr ? *rect : window->Client(), erase != FALSE);
    return TRUE;
}

BOOL UpdateWindow(HWND handle) {
    const std::shared_ptr<Window> window = Find(handle);
    if (window == nullptr) {
        return FALSE;
    }
    if (windowing::Shows(*window)) {
        windowing::PaintNow(*window);
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
    windowing::OpenCanvas(*window, paint->rcPaint);
    windowing::InvalidateChildren(*window, paint->rcPaint, erase);
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
    windowing::CloseCanvas(*window);
    Window& top = windowing::TopLevelOf(*window);
    // All that is invalid is seen at once, so that no window shows without its children.
    if (!top.Layered() && !windowing::HasInvalidPart(top)) {
        windowing::PresentCanvas(top);
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

// Device contexts, bitmaps and brushes: which handles live, and what they stand for. Knows nothing
// of shapes and text.
#include "painting/device_context.h"

#include "application/application.h"
#include "painting/picture.h"

#include <wingdi.h>

#include <QApplication>
#include <QColor>
#include <QScreen>

#include <unordered_map>
#include <utility>
#include <variant>

namespace painting {

namespace {

// Objects by handle, so that a handle that is not one, or is one no longer, is found out.
template <typename Handle, typename Object>
class Living {
public:
    Handle Add(std::unique_ptr<Object> object) {
        // A handle is nothing but a number that tells its object from others.
        const auto handle = reinterpret_cast<Handle>(object.get());
        objects_.emplace(handle, std::move(object));
        return handle;
    }
    Object* Find(Handle handle) const {
        const auto found = objects_.find(handle);
        return found == objects_.end() ? nullptr : found->second.get();
    }
    bool Remove(Handle handle) { return objects_.erase(handle) != 0; }

private:
    std::unordered_map<Handle, std::unique_ptr<Object>> objects_;
};

struct Bitmap {
    std::shared_ptr<Surface> surface;
    HDC holder = nullptr; // the context that it is selected into
};

struct Brush {
    QColor colour;
};

using Object = std::variant<Bitmap, Brush>;

struct Context {
    enum class Kind { Screen, Memory, Foreign };

    Kind kind;
    std::shared_ptr<Surface> surface; // null on the screen, and in memory without a bitmap
    HGDIOBJ selected;
};

Living<HDC, Context>& Contexts() {
    static Living<HDC, Context> contexts;
    return contexts;
}

Living<HGDIOBJ, Object>& Objects() {
    static Living<HGDIOBJ, Object> objects;
    return objects;
}

// What a context in memory holds before and after any bitmap.
HGDIOBJ NoBitmap() {
    static char nothing;
    return &nothing;
}

HDC AddContext(Context::Kind kind, std::shared_ptr<Surface> surface) {
    return Contexts().Add(std::make_unique<Context>(Context{kind, std::move(surface), NoBitmap()}));
}

Bitmap* BitmapOf(HGDIOBJ handle) {
    Object* object = Objects().Find(handle);
    return object == nullptr ? nullptr : std::get_if<Bitmap>(object);
}

void Deselect(Context& context) {
    if (Bitmap* bitmap = BitmapOf(context.selected)) {
        bitmap->holder = nullptr;
    }
    context.selected = NoBitmap();
    context.surface.reset();
}

bool RemoveContext(HDC dc, Context::Kind kind) {
    Context* context = Contexts().Find(dc);
    if (context == nullptr || context->kind != kind) {
        return false;
    }
    Deselect(*context);
    return Contexts().Remove(dc);
}

// Sides beyond this make no window, and their product would no longer be a size.
constexpr LONG kLongestSide = 32767;

bool IsOurFormat(const BITMAPINFOHEADER& header) {
    return header.biBitCount == 32 && header.biCompression == BI_RGB && header.biPlanes == 1 &&
           header.biWidth > 0 && header.biWidth <= kLongestSide && header.biHeight < 0 &&
           header.biHeight >= -kLongestSide;
}

const QScreen* PrimaryScreen() {
    return application::Instance() == nullptr ? nullptr : QGuiApplication::primaryScreen();
}

} // namespace

bool IsContext(HDC dc) {
    return Contexts().Find(dc) != nullptr;
}

std::shared_ptr<Surface> SurfaceOf(HDC dc) {
    const Context* context = Contexts().Find(dc);
    return context == nullptr ? nullptr : context->surface;
}

QImage* PictureOf(HDC dc) {
    const std::shared_ptr<Surface> surface = SurfaceOf(dc);
    return surface == nullptr ? nullptr : surface->Picture();
}

HDC OpenContext(QImage& picture) {
    return AddContext(Context::Kind::Foreign, std::make_shared<Surface>(&picture));
}

void CloseContext(HDC dc) {
    if (const std::shared_ptr<Surface> surface = SurfaceOf(dc)) {
        if (RemoveContext(dc, Context::Kind::Foreign)) {
            surface->Forget(); // graphics objects may still hold it
        }
    }
}

int ScreenDpiX() {
    const QScreen* screen = PrimaryScreen();
    return screen == nullptr ? 0 : qRound(screen->logicalDotsPerInchX());
}

int ScreenDpiY() {
    const QScreen* screen = PrimaryScreen();
    return screen == nullptr ? 0 : qRound(screen->logicalDotsPerInchY());
}

} // namespace painting

using namespace painting;

HDC GetDC(HWND window) {
    return window == nullptr ? AddContext(Context::Kind::Screen, nullptr) : nullptr;
}

int ReleaseDC(HWND /*window*/, HDC dc) {
    return RemoveContext(dc, Context::Kind::Screen) ? 1 : 0;
}

HDC CreateCompatibleDC(HDC dc) {
    return dc == nullptr || IsContext(dc) ? AddContext(Context::Kind::Memory, nullptr) : nullptr;
}

BOOL DeleteDC(HDC dc) {
    return RemoveContext(dc, Context::Kind::Memory) ? TRUE : FALSE;
}

HBITMAP CreateDIBSection(HDC /*dc*/, const BITMAPINFO* info, UINT usage, void** bits,
                         HANDLE section, DWORD /*offset*/) {
    if (bits != nullptr) {
        *bits = nullptr;
    }
    if (info == nullptr || usage != DIB_RGB_COLORS || section != nullptr ||
        !IsOurFormat(info->bmiHeader)) {
        return nullptr;
    }
    QImage picture(info->bmiHeader.biWidth, -info->bmiHeader.biHeight,
                   QImage::Format_ARGB32_Premultiplied);
    if (picture.isNull()) {
        return nullptr;
    }
    picture.fill(0);
    auto surface = std::make_shared<Surface>(std::move(picture));
    if (bits != nullptr) {
        *bits = surface->Picture()->bits();
    }
    return static_cast<HBITMAP>(
        Objects().Add(std::make_unique<Object>(Bitmap{std::move(surface), nullptr})));
}

HBRUSH CreateSolidBrush(COLORREF colour) {
    const QColor opaque(static_cast<int>(colour & 0xFF), static_cast<int>(colour >> 8 & 0xFF),
                        static_cast<int>(colour >> 16 & 0xFF));
    return static_cast<HBRUSH>(Objects().Add(std::make_unique<Object>(Brush{opaque})));
}

HGDIOBJ SelectObject(HDC dc, HGDIOBJ object) {
    Context* context = Contexts().Find(dc);
    if (context == nullptr || context->kind != Context::Kind::Memory) {
        return nullptr;
    }
    Bitmap* bitmap = BitmapOf(object);
    if (bitmap == nullptr && object != NoBitmap()) {
        return nullptr;
    }
    if (bitmap != nullptr && bitmap->holder != nullptr && bitmap->holder != dc) {
        return nullptr;
    }
    const HGDIOBJ former = context->selected;
    Deselect(*context);
    if (bitmap != nullptr) {
        bitmap->holder = dc;
        context->surface = bitmap->surface;
        context->selected = object;
    }
    return former;
}

BOOL DeleteObject(HGDIOBJ object) {
    const Bitmap* bitmap = BitmapOf(object);
    if (bitmap != nullptr && bitmap->holder != nullptr) {
        return FALSE;
    }
    return Objects().Remove(object) ? TRUE : FALSE;
}

int FillRect(HDC dc, const RECT* rectangle, HBRUSH brush) {
    const std::shared_ptr<Surface> surface = SurfaceOf(dc);
    const Object* object = Objects().Find(brush);
    const Brush* fill = object == nullptr ? nullptr : std::get_if<Brush>(object);
    if (surface == nullptr || rectangle == nullptr || fill == nullptr) {
        return 0;
    }
    surface->Enter();
    bool changed = false;
    if (QPainter* painter = surface->PainterFor(nullptr, &changed)) {
        painter->setClipping(false);
        painter->fillRect(QRect(QPoint(rectangle->left, rectangle->top),
                                QPoint(rectangle->right - 1, rectangle->bottom - 1)),
                          fill->colour);
    }
    surface->Leave();
    return 1;
}

int GetDeviceCaps(HDC dc, int index) {
    if (!IsContext(dc)) {
        return 0;
    }
    switch (index) {
    case LOGPIXELSX:
        return ScreenDpiX();
    case LOGPIXELSY:
        return ScreenDpiY();
    default:
        return 0;
    }
}

// Device contexts: which handles live, what is selected into them, and what they draw on. Knows
// nothing of how anything is drawn.
#include "painting/device_context.h"

#include "application/application.h"
#include "painting/gdi_objects.h"
#include "painting/living.h"
#include "painting/numbers.h"
#include "painting/picture.h"

#include <QApplication>
#include <QScreen>
#include <wingdi.h>

#include <utility>

namespace painting {

namespace {

struct Context {
    enum class Kind { Screen, Memory, Foreign };

    Kind kind;
    std::shared_ptr<Raster> raster; // null on the screen, and in memory without a bitmap
    HGDIOBJ bitmap;                 // the one selected
    TextState text;
};

Living<HDC, Context>& Contexts() {
    static Living<HDC, Context> contexts;
    return contexts;
}

// What a context in memory holds before and after any bitmap.
HGDIOBJ NoBitmap() {
    static char nothing;
    return &nothing;
}

HDC AddContext(Context::Kind kind, std::shared_ptr<Raster> raster) {
    TextState text;
    text.font = GetStockObject(SYSTEM_FONT);
    return Contexts().Add(
        std::make_unique<Context>(Context{kind, std::move(raster), NoBitmap(), std::move(text)}));
}

void Deselect(Context& context) {
    if (Bitmap* bitmap = BitmapOf(context.bitmap)) {
        bitmap->holder = nullptr;
    }
    context.bitmap = NoBitmap();
    context.raster.reset();
}

bool RemoveContext(HDC dc, Context::Kind kind) {
    Context* context = Contexts().Find(dc);
    if (context == nullptr || context->kind != kind) {
        return false;
    }
    Deselect(*context);
    return Contexts().Remove(dc);
}

HGDIOBJ SelectFont(Context& context, HGDIOBJ font) {
    context.text.face = TextFontOf(font)->face;
    return std::exchange(context.text.font, font);
}

HGDIOBJ SelectBitmap(HDC dc, Context& context, HGDIOBJ object) {
    Bitmap* bitmap = BitmapOf(object);
    if (context.kind != Context::Kind::Memory || (bitmap == nullptr && object != NoBitmap()) ||
        (bitmap != nullptr && bitmap->holder != nullptr && bitmap->holder != dc)) {
        return nullptr;
    }
    const HGDIOBJ former = context.bitmap;
    Deselect(context);
    if (bitmap != nullptr) {
        bitmap->holder = dc;
        context.raster = bitmap->raster;
        context.bitmap = object;
    }
    return former;
}

TextState* FindTextState(HDC dc) {
    Context* context = Contexts().Find(dc);
    return context == nullptr ? nullptr : &context->text;
}

const QScreen* PrimaryScreen() {
    return application::Instance() == nullptr ? nullptr : QGuiApplication::primaryScreen();
}

} // namespace

bool IsContext(HDC dc) {
    return Contexts().Find(dc) != nullptr;
}

std::shared_ptr<Raster> RasterOf(HDC dc) {
    const Context* context = Contexts().Find(dc);
    return context == nullptr ? nullptr : context->raster;
}

const TextState* TextStateOf(HDC dc) {
    return FindTextState(dc);
}

QImage* PictureOf(HDC dc) {
    const std::shared_ptr<Raster> raster = RasterOf(dc);
    return raster == nullptr ? nullptr : raster->Picture();
}

HDC OpenContext(QImage& picture) {
    return OpenContext(picture, {0, 0}, {0, 0, picture.width(), picture.height()});
}

HDC OpenContext(QImage& picture, POINT origin, RECT clip) {
    return AddContext(Context::Kind::Foreign,
                      std::make_shared<Raster>(&picture, QPoint(origin.x, origin.y), RectOf(clip)));
}

void CloseContext(HDC dc) {
    if (const std::shared_ptr<Raster> raster = RasterOf(dc)) {
        if (RemoveContext(dc, Context::Kind::Foreign)) {
            raster->Forget(); // graphics objects may still hold it
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

HGDIOBJ SelectObject(HDC dc, HGDIOBJ object) {
    Context* context = Contexts().Find(dc);
    if (context == nullptr) {
        return nullptr;
    }
    return TextFontOf(object) != nullptr ? SelectFont(*context, object)
                                         : SelectBitmap(dc, *context, object);
}

COLORREF SetTextColor(HDC dc, COLORREF colour) {
    TextState* state = FindTextState(dc);
    return state == nullptr ? CLR_INVALID : std::exchange(state->colour, colour);
}

COLORREF GetTextColor(HDC dc) {
    const TextState* state = FindTextState(dc);
    return state == nullptr ? CLR_INVALID : state->colour;
}

COLORREF SetBkColor(HDC dc, COLORREF colour) {
    TextState* state = FindTextState(dc);
    return state == nullptr ? CLR_INVALID : std::exchange(state->background, colour);
}

COLORREF GetBkColor(HDC dc) {
    const TextState* state = FindTextState(dc);
    return state == nullptr ? CLR_INVALID : state->background;
}

int SetBkMode(HDC dc, int mode) {
    TextState* state = FindTextState(dc);
    if (state == nullptr || (mode != TRANSPARENT && mode != OPAQUE)) {
        return 0;
    }
    return std::exchange(state->backgroundMode, mode);
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

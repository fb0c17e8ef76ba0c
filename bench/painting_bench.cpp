// What pictures of the windows are made of: text measured for the first time and again, text drawn,
// cards filled, pictures copied. The baseline is the clearing of the picture.
#include <windows.h>
#include <benchmark/benchmark.h>
#include <gdiplus.h>

#include <cstdlib>
#include <string>

using namespace Gdiplus;
using namespace Gdiplus::DllExports;

namespace {

constexpr int kWidth = 380;
constexpr int kHeight = 420;
constexpr float kCardWidth = 352.0F;
constexpr float kLineRoom = 2000.0F;

// One for all benchmarks: the process ends with it.
class Scene {
public:
    Scene() {
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
        BITMAPINFO info{};
        info.bmiHeader.biSize = sizeof info.bmiHeader;
        info.bmiHeader.biWidth = kWidth;
        info.bmiHeader.biHeight = -kHeight;
        info.bmiHeader.biPlanes = 1;
        info.bmiHeader.biBitCount = 32;
        context = CreateCompatibleDC(nullptr);
        void* bits = nullptr;
        SelectObject(context, CreateDIBSection(context, &info, DIB_RGB_COLORS, &bits, nullptr, 0));
        GdipCreateFromHDC(context, &graphics);
        GdipSetSmoothingMode(graphics, SmoothingModeAntiAlias);
        GdipGetGenericFontFamilySansSerif(&family);
        constexpr float kPoints = 10.5F;
        GdipCreateFont(family, kPoints, FontStyleRegular, UnitPoint, &font);
        GdipCreateSolidFill(0xF0EFEFEF, &brush);
        GdipCreateStringFormat(StringFormatFlagsLineLimit, LANG_NEUTRAL, &format);
    }

    RectF Measure(const std::u16string& text) const {
        const RectF room(0, 0, kCardWidth, kLineRoom);
        RectF box;
        GdipMeasureString(graphics, text.data(), static_cast<INT>(text.size()), font, &room, format,
                          &box, nullptr, nullptr);
        return box;
    }

    HDC context = nullptr;
    GpGraphics* graphics = nullptr;
    GpFontFamily* family = nullptr;
    GpFont* font = nullptr;
    GpSolidFill* brush = nullptr;
    GpStringFormat* format = nullptr;
};

const Scene& TheScene() {
    static const Scene scene;
    return scene;
}

// `length` characters of words; texts of different numbers differ at their beginning.
std::u16string Words(std::size_t length, std::size_t number) {
    const std::u16string_view pattern = u" the quick brown fox jumps over the lazy dog and";
    std::u16string text;
    for (const char digit : std::to_string(number)) {
        text += static_cast<char16_t>(digit);
    }
    while (text.size() < length) {
        text += pattern[text.size() % pattern.size()];
    }
    return text;
}

void ClearThePicture(benchmark::State& state) {
    for (auto _ : state) {
        GdipGraphicsClear(TheScene().graphics, 0xFF0E0E16);
    }
}

void MeasureANewText(benchmark::State& state) {
    const auto length = static_cast<std::size_t>(state.range(0));
    std::size_t number = 1000; // always four digits and more
    for (auto _ : state) {
        benchmark::DoNotOptimize(TheScene().Measure(Words(length, ++number)));
    }
}

void MeasureAKnownText(benchmark::State& state) {
    const std::u16string text = Words(static_cast<std::size_t>(state.range(0)), 0);
    for (auto _ : state) {
        benchmark::DoNotOptimize(TheScene().Measure(text));
    }
}

void MeasureAMegabyte(benchmark::State& state) {
    const std::u16string text = Words(std::size_t{1} << 20, 0);
    for (auto _ : state) {
        benchmark::DoNotOptimize(TheScene().Measure(text));
    }
}

void DrawAText(benchmark::State& state) {
    const std::u16string text = Words(static_cast<std::size_t>(state.range(0)), 0);
    const RectF room(0, 0, kCardWidth, kHeight);
    for (auto _ : state) {
        GdipDrawString(TheScene().graphics, text.data(), static_cast<INT>(text.size()),
                       TheScene().font, &room, TheScene().format, TheScene().brush);
    }
}

void DrawAPlainText(benchmark::State& state) {
    const std::u16string text = Words(static_cast<std::size_t>(state.range(0)), 0);
    HDC context = TheScene().context;
    constexpr int kPixels = 12;
    HFONT font = CreateFontW(-kPixels, 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0,
                             CLEARTYPE_QUALITY, 0, TEXT("Microsoft YaHei UI"));
    HGDIOBJ former = SelectObject(context, font);
    for (auto _ : state) {
        RECT room{0, 0, static_cast<LONG>(kCardWidth), 28};
        DrawTextW(context, text.data(), static_cast<int>(text.size()), &room,
                  DT_SINGLELINE | DT_VCENTER | DT_NOPREFIX | DT_END_ELLIPSIS);
    }
    SelectObject(context, former);
    DeleteObject(font);
}

void CopyAPicture(benchmark::State& state) {
    HDC context = CreateCompatibleDC(nullptr);
    HBITMAP bitmap = CreateCompatibleBitmap(context, kWidth, kHeight);
    HGDIOBJ former = SelectObject(context, bitmap);
    for (auto _ : state) {
        BitBlt(TheScene().context, 0, 0, kWidth, kHeight, context, 0, 0, SRCCOPY);
    }
    SelectObject(context, former);
    DeleteObject(bitmap);
    DeleteDC(context);
}

void FillACard(benchmark::State& state) {
    for (auto _ : state) {
        GpPath* path = nullptr;
        GdipCreatePath(FillModeAlternate, &path);
        constexpr float kSide = 14;
        constexpr float kCardHeight = 60;
        GdipAddPathArc(path, 0, 0, kSide, kSide, 180, 90);
        GdipAddPathArc(path, kCardWidth - kSide, 0, kSide, kSide, 270, 90);
        GdipAddPathArc(path, kCardWidth - kSide, kCardHeight - kSide, kSide, kSide, 0, 90);
        GdipAddPathArc(path, 0, kCardHeight - kSide, kSide, kSide, 90, 90);
        GdipClosePathFigure(path);
        GdipFillPath(TheScene().graphics, TheScene().brush, path);
        GdipDeletePath(path);
    }
}

void CreateAFont(benchmark::State& state) {
    for (auto _ : state) {
        GpFontFamily* family = nullptr;
        GdipCreateFontFamilyFromName(TEXT("Segoe UI"), nullptr, &family);
        GpFont* font = nullptr;
        constexpr float kPoints = 12.5F;
        GdipCreateFont(TheScene().family, kPoints, FontStyleRegular, UnitPoint, &font);
        GdipDeleteFont(font);
    }
}

BENCHMARK(ClearThePicture);
BENCHMARK(MeasureANewText)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK(MeasureAKnownText)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK(MeasureAMegabyte);
BENCHMARK(DrawAText)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK(DrawAPlainText)->Arg(10)->Arg(100);
BENCHMARK(CopyAPicture);
BENCHMARK(FillACard);
BENCHMARK(CreateAFont);

} // namespace

BENCHMARK_MAIN();

#include "painting/fonts.h"
#include "painting/picture.h"
#include "painting/text_font.h"
#include "painting/text_layout.h"

#include <windows.h>
#include <QImage>
#include <gdiplus.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

using namespace Gdiplus;
using namespace Gdiplus::DllExports;

namespace {

// One picture of text is as good as another as long as it is always the same one.
const int kOffscreenAt96Dpi = [] {
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    return setenv("QT_FONT_DPI", "96", 1);
}();

template <auto Delete>
struct Deleter {
    template <typename T>
    void operator()(T* object) const {
        Delete(object);
    }
};
using Font = std::unique_ptr<GpFont, Deleter<&GdipDeleteFont>>;
using Format = std::unique_ptr<GpStringFormat, Deleter<&GdipDeleteStringFormat>>;
using Brush = std::unique_ptr<GpBrush, Deleter<&GdipDeleteBrush>>;
using Path = std::unique_ptr<GpPath, Deleter<&GdipDeletePath>>;
using Pen = std::unique_ptr<GpPen, Deleter<&GdipDeletePen>>;
using Graphics = std::unique_ptr<GpGraphics, Deleter<&GdipDeleteGraphics>>;

Font SansSerif(float points, int style = FontStyleRegular) {
    GpFontFamily* family = nullptr;
    GpFont* font = nullptr;
    EXPECT_EQ(GdipGetGenericFontFamilySansSerif(&family), Ok);
    EXPECT_EQ(GdipCreateFont(family, points, style, UnitPoint, &font), Ok);
    return Font(font);
}

// Null where the icon font is not installed.
Font Icons(float points) {
    GpFontFamily* family = nullptr;
    if (GdipCreateFontFamilyFromName(TEXT("Segoe MDL2 Assets"), nullptr, &family) != Ok) {
        return nullptr;
    }
    const std::unique_ptr<GpFontFamily, Deleter<&GdipDeleteFontFamily>> owner(family);
    GpFont* font = nullptr;
    EXPECT_EQ(GdipCreateFont(family, points, FontStyleRegular, UnitPoint, &font), Ok);
    return Font(font);
}

Format MakeFormat(int flags, StringAlignment alignment = StringAlignmentNear,
                  StringTrimming trimming = StringTrimmingCharacter) {
    GpStringFormat* format = nullptr;
    EXPECT_EQ(GdipCreateStringFormat(flags, LANG_NEUTRAL, &format), Ok);
    EXPECT_EQ(GdipSetStringFormatAlign(format, alignment), Ok);
    EXPECT_EQ(GdipSetStringFormatLineAlign(format, alignment), Ok);
    EXPECT_EQ(GdipSetStringFormatTrimming(format, trimming), Ok);
    return Format(format);
}

Brush Solid(ARGB colour) {
    GpSolidFill* brush = nullptr;
    EXPECT_EQ(GdipCreateSolidFill(colour, &brush), Ok);
    return Brush(brush);
}

Path RoundedRectangle(float x, float y, float w, float h, float r) {
    GpPath* path = nullptr;
    EXPECT_EQ(GdipCreatePath(FillModeAlternate, &path), Ok);
    GdipAddPathArc(path, x, y, 2 * r, 2 * r, 180, 90);
    GdipAddPathArc(path, x + w - 2 * r, y, 2 * r, 2 * r, 270, 90);
    GdipAddPathArc(path, x + w - 2 * r, y + h - 2 * r, 2 * r, 2 * r, 0, 90);
    GdipAddPathArc(path, x, y + h - 2 * r, 2 * r, 2 * r, 90, 90);
    GdipClosePathFigure(path);
    return Path(path);
}

Pen MakePen(ARGB colour) {
    GpPen* pen = nullptr;
    EXPECT_EQ(GdipCreatePen1(colour, 1, UnitWorld, &pen), Ok);
    return Pen(pen);
}

HFONT PlainFont(int pixels, const WCHAR* family, int weight = FW_NORMAL) {
    return CreateFontW(-pixels, 0, 0, 0, weight, FALSE, FALSE, FALSE, DEFAULT_CHARSET, 0, 0,
                       CLEARTYPE_QUALITY, 0, family);
}

struct Measured {
    RectF box;
    int units = 0;
    int lines = 0;
};

HBITMAP MakeBitmap(LONG width, LONG height, void** bits) {
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    return CreateDIBSection(nullptr, &info, DIB_RGB_COLORS, bits, nullptr, 0);
}

// A transparent picture with smooth graphics on it.
class Canvas {
public:
    Canvas(int width, int height) : width_(width), height_(height) {
        bitmap_ = MakeBitmap(width, -height, &bits_);
        context_ = CreateCompatibleDC(nullptr);
        former_ = SelectObject(context_, bitmap_);
        GpGraphics* graphics = nullptr;
        EXPECT_EQ(GdipCreateFromHDC(context_, &graphics), Ok);
        GdipSetSmoothingMode(graphics, SmoothingModeAntiAlias);
        graphics_.reset(graphics);
    }
    ~Canvas() {
        graphics_.reset();
        SelectObject(context_, former_);
        EXPECT_TRUE(DeleteObject(bitmap_));
        EXPECT_TRUE(DeleteDC(context_));
    }
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    GpGraphics* Graphics() const { return graphics_.get(); }
    HDC Context() const { return context_; }
    HBITMAP Bitmap() const { return bitmap_; }
    DWORD At(int x, int y) const { return static_cast<const DWORD*>(bits_)[y * width_ + x]; }
    int AlphaAt(int x, int y) const { return static_cast<int>(At(x, y) >> 24); }

    Measured Measure(std::u16string_view text, const GpFont* font, const RectF& room,
                     const GpStringFormat* format) const {
        Measured measured;
        EXPECT_EQ(GdipMeasureString(Graphics(), text.data(), static_cast<INT>(text.size()), font,
                                    &room, format, &measured.box, &measured.units, &measured.lines),
                  Ok);
        return measured;
    }
    void Draw(std::u16string_view text, const GpFont* font, const RectF& room,
              const GpStringFormat* format) const {
        EXPECT_EQ(GdipDrawString(Graphics(), text.data(), static_cast<INT>(text.size()), font,
                                 &room, format, Solid(0xFFFFFFFF).get()),
                  Ok);
    }
    std::vector<DWORD> Pixels() const {
        const auto* first = static_cast<const DWORD*>(bits_);
        return {first, first + std::ptrdiff_t{width_} * height_};
    }
    // The smallest rectangle with all that is not transparent; its right and bottom lie outside.
    RECT Ink() const {
        RECT ink{width_, height_, 0, 0};
        for (int y = 0; y < height_; ++y) {
            for (int x = 0; x < width_; ++x) {
                if (AlphaAt(x, y) > 0x20) {
                    ink = {std::min(ink.left, x), std::min(ink.top, y), std::max(ink.right, x + 1),
                           std::max(ink.bottom, y + 1)};
                }
            }
        }
        return ink;
    }

private:
    const int width_;
    const int height_;
    void* bits_ = nullptr;
    HBITMAP bitmap_ = nullptr;
    HDC context_ = nullptr;
    HGDIOBJ former_ = nullptr;
    ::Graphics graphics_;
};

constexpr float kPoints = 10.5F; // 14 pixels
constexpr float kUnbounded = 0;

// ---- Measuring --------------------------------------------------------------------------------

TEST(PaintingText, BreaksLinesAsARectangleAndAFormatWantIt) {
    const Canvas canvas(8, 8);
    const Font font = SansSerif(kPoints);
    const float line = canvas.Measure(u"x", font.get(), {}, nullptr).box.Height;
    const float four = canvas.Measure(u"大家好大", font.get(), {}, nullptr).box.Width;
    const float word = canvas.Measure(u"word word", font.get(), {}, nullptr).box.Width;
    struct Case {
        const char* fault;
        std::u16string_view text;
        float width;
        float height;
        int flags;
        int lines;
        int units;
    };
    using namespace std::string_view_literals;
    const Case cases[] = {
        {"not broken at the blank", u"word word word", word, kUnbounded, 0, 2, 14},
        {"broken at the exact width", u"word word", word, kUnbounded, 0, 1, 9},
        {"a long word runs over", u"wordwordwordwordword", word, kUnbounded, 0, 3, 20},
        {"ideographs are kept together", u"大家好大家好大家好", four, kUnbounded, 0, 3, 9},
        {"NoWrap breaks", u"word word word", word, kUnbounded, StringFormatFlagsNoWrap, 1, 14},
        {"a return and a feed are two", u"a\r\nb", kUnbounded, kUnbounded, 0, 2, 4},
        {"a lone return does not break", u"a\rb", kUnbounded, kUnbounded, 0, 2, 3},
        {"an empty line is lost", u"a\n\nb", kUnbounded, kUnbounded, 0, 3, 4},
        {"the last break makes a line", u"a\nb\n", kUnbounded, kUnbounded, 0, 2, 4},
        {"half a line is kept", u"a\nb\nc", 0, 2.5F * line, StringFormatFlagsLineLimit, 2, 4},
        {"half a line is dropped", u"a\nb\nc", 0, 2.5F * line, 0, 3, 5},
        {"a whole line is dropped", u"a\nb\nc", 0, 3 * line, StringFormatFlagsLineLimit, 3, 5},
        {"less than a line is kept", u"a", 0, 0.9F * line, StringFormatFlagsLineLimit, 0, 0},
        {"nothing has a line", u""sv, word, kUnbounded, 0, 0, 0},
        {"a zero ends a text of known length", u"a\0\nb"sv, kUnbounded, kUnbounded, 0, 2, 4},
        {"no room, no end", u"abc", 0.5F, kUnbounded, 0, 3, 3},
        {"a negative width has lines", u"abc", -5, 20, 0, 0, 0},
        {"a negative height has lines", u"abc", 50, -20, 0, 0, 0},
    };
    for (const Case& c : cases) {
        const Measured measured = canvas.Measure(c.text, font.get(), {3, 5, c.width, c.height},
                                                 MakeFormat(c.flags).get());
        EXPECT_EQ(measured.lines, c.lines) << c.fault;
        EXPECT_EQ(measured.units, c.units) << c.fault;
        const float height = static_cast<float>(c.lines) * line;
        EXPECT_EQ(measured.box.Height, c.height > 0 ? std::min(height, c.height) : height)
            << c.fault;
        EXPECT_EQ(measured.box.X, 3.0F);
        EXPECT_EQ(measured.box.Y, 5.0F);
    }
    RectF box;
    const RectF room;
    EXPECT_EQ(GdipMeasureString(canvas.Graphics(), u"x", -1, font.get(), &room, nullptr, &box,
                                nullptr, nullptr),
              Ok);
    EXPECT_EQ(box.Height, line) << "a text of length -1 ends at its zero";
}

TEST(PaintingText, EveryScriptHasLinesOfTheSameHeight) {
    const Canvas canvas(8, 8);
    const Font font = SansSerif(12.5F);
    const float line = canvas.Measure(u"x", font.get(), {}, nullptr).box.Height;
    for (const std::u16string_view text : {u"大家好", u"今日は", u"안녕", u"مرحبا", u"สวัสดี",
                                           u"नमस्ते", u"😀 👨‍👩‍👧", u"\xE713", u"Ấ"}) {
        EXPECT_EQ(canvas.Measure(text, font.get(), {}, nullptr).box.Height, line);
    }
}

TEST(PaintingText, WhatCannotBeShownTakesNoRoomAndStopsNothing) {
    const Canvas canvas(8, 8);
    const Font font = SansSerif(kPoints);
    const auto width = [&](std::u16string_view text) {
        return canvas.Measure(text, font.get(), {}, nullptr).box.Width;
    };
    using namespace std::string_view_literals;
    EXPECT_EQ(width(u"ab"), width(u"a\0\x1B\x07\x7F\x85"
                                  u"b"sv))
        << "control characters";
    constexpr char16_t highOnly[] = {u'a', 0xD83D, u'b', 0};
    constexpr char16_t lowOnly[] = {u'a', 0xDE00, u'b', 0};
    constexpr char16_t reversed[] = {u'a', 0xDE00, 0xD83D, u'b', 0};
    EXPECT_EQ(width(highOnly), width(u"a\xFFFD"
                                     u"b"));
    EXPECT_EQ(width(lowOnly), width(u"a\xFFFD"
                                    u"b"));
    EXPECT_EQ(width(reversed), width(u"a\xFFFD\xFFFD"
                                     u"b"));
    EXPECT_EQ(width(u"ab   \t"), width(u"ab")) << "blanks at the end count";
    EXPECT_GT(width(u"  ab"), width(u"ab")) << "blanks at the start are lost";
    EXPECT_GT(width(u"a\tb"), width(u"a b")) << "a tab is a blank";
}

TEST(PaintingText, AnEllipsisStandsForExactlyWhatHasNoRoom) {
    const Canvas canvas(8, 8);
    const Font font = SansSerif(kPoints);
    const Format format =
        MakeFormat(StringFormatFlagsNoWrap, StringAlignmentNear, StringTrimmingEllipsisCharacter);
    const std::u16string text = u"Kelvarin, 字幕 and e\x0301 👨‍👩‍👧 behind";
    const float whole = canvas.Measure(text, font.get(), {}, nullptr).box.Width;
    const auto cutAfter = [&](int units) {
        return canvas.Measure(text.substr(0, static_cast<std::size_t>(units)) + u"…", font.get(),
                              {}, nullptr);
    };
    const int steps = static_cast<int>((whole - 30) / 7.25F);
    for (int step = 0; step < steps; ++step) {
        const float width = 30 + 7.25F * static_cast<float>(step);
        const Measured cut = canvas.Measure(text, font.get(), {0, 0, width, 20}, format.get());
        EXPECT_LE(cut.box.Width, width);
        EXPECT_LT(cut.units, static_cast<int>(text.size()));
        EXPECT_GT(cutAfter(cut.units + 8).box.Width, width) << "more would have had room";
    }
    const Measured fits = canvas.Measure(text, font.get(), {0, 0, whole, 20}, format.get());
    EXPECT_EQ(fits.box.Width, whole);
    EXPECT_EQ(fits.units, static_cast<int>(text.size()));
}

TEST(PaintingText, AKnownSizeIsNeverThatOfAnotherQuestion) {
    const Canvas canvas(8, 8);
    const Font fonts[] = {SansSerif(kPoints), SansSerif(12.5F), SansSerif(kPoints, FontStyleBold)};
    const std::u16string texts[] = {u"the quick brown fox jumps", u"the quick brown fox jumpt",
                                    std::u16string(40000, u'w')};
    const auto measureAll = [&] {
        std::vector<float> sizes;
        for (const auto& text : texts) {
            for (const auto& font : fonts) {
                for (const float width : {60.0F, 61.5F, 90.0F}) {
                    for (const int flags : {0, 0x1000, 0x2000}) {
                        const Measured measured = canvas.Measure(
                            text, font.get(), {0, 0, width, 50}, MakeFormat(flags).get());
                        sizes.insert(sizes.end(), {measured.box.Width, measured.box.Height,
                                                   static_cast<float>(measured.units)});
                    }
                }
            }
        }
        return sizes;
    };
    GdiplusShutdown(1); // forgets all
    const std::vector<float> fresh = measureAll();
    EXPECT_EQ(measureAll(), fresh);
}

TEST(PaintingText, AMegabyteCostsNoMoreThanTheLinesThatHaveRoom) {
    std::u16string lines;
    std::u16string words;
    while (words.size() < (std::size_t{1} << 20)) {
        words += u"some words ";
        lines += u"line\r\n";
    }
    const std::size_t units = words.size();
    const std::u16string texts[] = {words, lines, std::u16string(units, u'w'),
                                    std::u16string(units, u'字'), std::u16string(units, 0xD83D)};
    const Font font = SansSerif(kPoints);
    for (const std::u16string& text : texts) {
        for (const bool wrap : {true, false}) {
            const auto laidOut = painting::LayOut(text, font->Face(), {340, 100, wrap, false});
            EXPECT_LE(laidOut.lines.size(), 100U);
            EXPECT_LT(laidOut.shaped, 40000);
        }
    }
    // Characters without a width never fill a line: all there is would have room in one.
    for (const char16_t unit : {u'\0', u'\u0301', u'\u200B', u'\u202E'}) {
        const std::u16string text(units, unit);
        const auto laidOut = painting::LayOut(text, font->Face(), {340, 100, true, false});
        EXPECT_LT(laidOut.shaped, 150000) << std::hex << int{unit};
        // Shaping takes time in the square of the marks on one letter.
        EXPECT_LT(laidOut.lines.front().layout->text().count(QChar(0x0301)), 20);
    }
}

// Found out by pieces that are long enough to be taken one by one.
TEST(PaintingText, LinesOfALongParagraphAreThoseOfItsSentences) {
    const Canvas canvas(8, 8);
    const Font font = SansSerif(kPoints);
    std::u16string text;
    for (int i = 0; i < 400; ++i) {
        text += u"word 字幕 😀 ";
    }
    const auto laidOut = painting::LayOut(text, font->Face(), {200, 4000, true, false});
    const int perLine = canvas
                            .Measure(text, font.get(), {0, 0, 200 + 14 / 3.0F, 19},
                                     MakeFormat(StringFormatFlagsLineLimit).get())
                            .units;
    EXPECT_EQ(laidOut.fitted, static_cast<qsizetype>(text.size()));
    EXPECT_GT(laidOut.shaped, laidOut.fitted) << "not in pieces: this test proves nothing";
    for (std::size_t i = 0; i + 1 < laidOut.lines.size(); ++i) {
        EXPECT_LE(laidOut.lines[i].width, 200.1);
        EXPECT_GT(laidOut.lines[i].width, 110) << "line " << i << " ends where a piece does";
    }
    EXPECT_GT(perLine, 10);
}

// ---- Drawing text -----------------------------------------------------------------------------

TEST(PaintingText, IsDrawnWhereItWasMeasured) {
    const Font font = SansSerif(kPoints);
    for (const StringAlignment alignment :
         {StringAlignmentNear, StringAlignmentCenter, StringAlignmentFar}) {
        const Canvas canvas(300, 120);
        const RectF room(20, 10, 250, 100);
        const Format format = MakeFormat(0, alignment);
        const RectF box = canvas.Measure(u"Hgj two lines\nHgj", font.get(), room, format.get()).box;
        canvas.Draw(u"Hgj two lines\nHgj", font.get(), room, format.get());
        const RECT ink = canvas.Ink();
        constexpr float kMargin = 14 / 6.0F;
        EXPECT_NEAR(static_cast<float>(ink.left), box.X + kMargin, 2.0);
        EXPECT_NEAR(static_cast<float>(ink.right), box.X + box.Width - kMargin, 2.0);
        EXPECT_GE(static_cast<float>(ink.top), box.Y);
        EXPECT_LE(static_cast<float>(ink.bottom), box.Y + box.Height);
        EXPECT_GT(static_cast<float>(ink.bottom - ink.top), box.Height - 9);
    }
}

TEST(PaintingText, NothingIsDrawnBesideARectangleThatIsTooSmall) {
    const Canvas canvas(200, 80);
    const Font font = SansSerif(kPoints);
    canvas.Draw(u"much too long for its room", font.get(), {50, 10, 60, 30},
                MakeFormat(StringFormatFlagsNoWrap).get());
    canvas.Draw(u"three\nlines\nand half", font.get(), {120, 10, 70, 48}, nullptr);
    const RECT ink = canvas.Ink();
    EXPECT_GE(ink.left, 50);
    EXPECT_LE(ink.bottom, 58);
    for (int y = 0; y < 80; ++y) {
        EXPECT_EQ(canvas.AlphaAt(112, y), 0);
    }
    canvas.Draw(u"below", font.get(), {0, 60, 50, 19}, nullptr);
    EXPECT_GT(canvas.Ink().bottom, 60) << "the clip of a text outlives it";
}

TEST(PaintingText, PointsArePixelsAtTheScreensDpi) {
    const Canvas canvas(8, 8);
    HDC screen = GetDC(nullptr);
    EXPECT_EQ(GetDeviceCaps(screen, LOGPIXELSX), 96);
    EXPECT_EQ(GetDeviceCaps(screen, LOGPIXELSY), 96);
    EXPECT_EQ(ReleaseDC(nullptr, screen), 1);
    const auto width = [&](float points) {
        const auto box =
            canvas.Measure(u"Overlay window", SansSerif(points).get(), {}, nullptr).box;
        return box.Width;
    };
    for (const float points : {9.0F, 11.0F, 11.2F, 12.5F, 14.0F}) {
        EXPECT_NEAR(width(points) / width(kPoints), points / kPoints, 0.012) << points;
    }
}

TEST(PaintingIcons, EachCodeHasItsOwnPictureInTheMiddleOfItsRectangle) {
    const Font font = Icons(14);
    if (font == nullptr) {
        GTEST_SKIP() << "the icon font is not installed";
    }
    const Format format = MakeFormat(0, StringAlignmentCenter);
    const auto picture = [&](char16_t code) {
        auto canvas = std::make_unique<Canvas>(40, 40);
        canvas->Draw({&code, 1}, font.get(), {0, 0, 40, 40}, format.get());
        return canvas;
    };
    std::vector<std::vector<DWORD>> seen{picture(0xFFFD)->Pixels(), picture(0xF8FF)->Pixels()};
    EXPECT_EQ(seen[0], seen[1]) << "a code without an icon shows somebody else's";
    for (const char16_t code :
         std::u16string_view(u"\xE106\xE107\xE713\xE720\xE72C\xE767\xE768\xE769\xE775")) {
        const auto canvas = picture(code);
        const RECT ink = canvas->Ink();
        EXPECT_NEAR(ink.left + ink.right, 40, 4) << std::hex << int{code};
        EXPECT_NEAR(ink.top + ink.bottom, 40, 3) << std::hex << int{code};
        EXPECT_GT(ink.bottom - ink.top, 8);
        for (const auto& other : seen) {
            EXPECT_NE(canvas->Pixels(), other) << std::hex << int{code};
        }
        seen.push_back(canvas->Pixels());
    }
}

// ---- Shapes -----------------------------------------------------------------------------------

TEST(PaintingShapes, ColoursBlendPremultipliedAndAreThereAtOnce) {
    const Canvas canvas(4, 4);
    GdipFillRectangle(canvas.Graphics(), Solid(0x80FF0000).get(), 0, 0, 2, 4);
    EXPECT_EQ(canvas.At(0, 0), 0x80800000U);
    EXPECT_EQ(canvas.At(2, 0), 0U);
    GdipGraphicsClear(canvas.Graphics(), 0xFF0E0E16);
    GdipFillRectangle(canvas.Graphics(), Solid(0x80FFFFFF).get(), 0, 0, 4, 2);
    EXPECT_EQ(canvas.At(1, 1), 0xFF87878BU);
    EXPECT_EQ(canvas.At(1, 2), 0xFF0E0E16U);
    GdipGraphicsClear(canvas.Graphics(), 0);
    EXPECT_EQ(canvas.At(1, 1), 0U) << "clearing blends";
    const RECT lower{0, 2, 4, 4};
    HBRUSH opaque = CreateSolidBrush(RGB(1, 2, 3));
    EXPECT_EQ(FillRect(canvas.Context(), &lower, opaque), 1);
    EXPECT_EQ(canvas.At(3, 3), 0xFF010203U);
    EXPECT_EQ(canvas.At(3, 1), 0U);
    EXPECT_TRUE(DeleteObject(opaque));
}

TEST(PaintingShapes, AGradientRunsEvenlyBetweenColoursThatAreNotPremultiplied) {
    const Canvas canvas(4, 40);
    const PointF from(0, 0);
    const PointF to(0, 40);
    GpLineGradient* gradient = nullptr;
    ASSERT_EQ(GdipCreateLineBrush(&from, &to, 0x40FFFFFF, 0x00000000, WrapModeTile, &gradient), Ok);
    const Brush owner(gradient);
    GdipFillRectangle(canvas.Graphics(), gradient, 0, 0, 4, 40);
    for (int y = 0; y < 40; ++y) {
        const double left = 1 - (y + 0.5) / 40; // of the first colour, in the row's middle
        EXPECT_NEAR(canvas.AlphaAt(2, y), 0x40 * left, 1.5) << y;
        EXPECT_NEAR(canvas.At(2, y) & 0xFF, 0x40 * left * left, 1.5) << y;
    }
    GpLineGradient* none = gradient;
    EXPECT_EQ(GdipCreateLineBrush(&from, &from, 1, 2, WrapModeTile, &none), InvalidParameter);
    EXPECT_EQ(none, nullptr);
}

TEST(PaintingShapes, ARoundedRectangleHasSmoothCornersAndSharpEdges) {
    const Canvas canvas(40, 40);
    GdipFillPath(canvas.Graphics(), Solid(0xFFFFFFFF).get(),
                 RoundedRectangle(5, 5, 30, 30, 7).get());
    EXPECT_EQ(canvas.AlphaAt(5, 5), 0);
    EXPECT_EQ(canvas.AlphaAt(5, 20), 255);
    EXPECT_EQ(canvas.AlphaAt(4, 20), 0);
    EXPECT_EQ(canvas.AlphaAt(34, 34), 0);
    EXPECT_EQ(canvas.AlphaAt(20, 34), 255);
    int partly = 0;
    for (int x = 5; x < 12; ++x) {
        partly += canvas.AlphaAt(x, 6) > 0 && canvas.AlphaAt(x, 6) < 255 ? 1 : 0;
    }
    EXPECT_GT(partly, 0) << "the corner is a staircase";

    const Canvas square(10, 10);
    GdipFillPath(square.Graphics(), Solid(0xFFFFFFFF).get(), RoundedRectangle(2, 2, 6, 6, 0).get());
    EXPECT_EQ(square.AlphaAt(2, 2), 255) << "a radius of 0 leaves nothing";
    EXPECT_EQ(square.AlphaAt(7, 7), 255);
    EXPECT_EQ(square.AlphaAt(8, 7), 0);
}

TEST(PaintingShapes, ThinOutlinesAndLinesFillOneRowOfPixels) {
    const Pen pen = MakePen(0xFFFFFFFF);
    const Canvas outlined(20, 10);
    GdipDrawPath(outlined.Graphics(), pen.get(), RoundedRectangle(0, 0, 20, 10, 3).get());
    for (const auto& [x, y] : {std::pair{0, 5}, {19, 5}, {10, 0}, {10, 9}}) {
        EXPECT_NEAR(outlined.AlphaAt(x, y), 255, 1) << x << ' ' << y;
    }
    EXPECT_EQ(outlined.AlphaAt(10, 1), 0);
    EXPECT_EQ(outlined.AlphaAt(1, 5), 0);

    const Canvas ruled(20, 10);
    GdipDrawLine(ruled.Graphics(), pen.get(), 2, 4, 18, 4);
    EXPECT_EQ(ruled.AlphaAt(2, 4), 255);
    EXPECT_EQ(ruled.AlphaAt(1, 4), 0);
    EXPECT_EQ(ruled.AlphaAt(10, 3), 0);
    EXPECT_EQ(ruled.AlphaAt(10, 5), 0);

    const Canvas framed(20, 10);
    GdipDrawRectangle(framed.Graphics(), pen.get(), 0, 0, 19, 9);
    for (int y = 0; y < 10; ++y) {
        for (int x = 0; x < 20; ++x) {
            const bool border = x == 0 || y == 0 || x == 19 || y == 9;
            EXPECT_EQ(framed.AlphaAt(x, y), border ? 255 : 0) << x << ' ' << y;
        }
    }
}

TEST(PaintingShapes, APolygonFillsTheInsideOfItsCorners) {
    const Canvas canvas(20, 20);
    const PointF triangle[] = {{2, 2}, {18, 2}, {10, 18}};
    EXPECT_EQ(
        GdipFillPolygon(canvas.Graphics(), Solid(0xFFFFFFFF).get(), triangle, 3, FillModeAlternate),
        Ok);
    EXPECT_EQ(canvas.AlphaAt(10, 2), 255);
    EXPECT_EQ(canvas.AlphaAt(10, 14), 255);
    EXPECT_EQ(canvas.AlphaAt(10, 1), 0);
    EXPECT_EQ(canvas.AlphaAt(3, 12), 0);
    EXPECT_EQ(canvas.AlphaAt(17, 12), 0);
}

TEST(PaintingShapes, PresetColoursTakeTheirPlacesAlongTheLine) {
    const Canvas canvas(60, 2);
    const PointF from(10, 0);
    const PointF to(50, 0);
    GpLineGradient* gradient = nullptr;
    ASSERT_EQ(GdipCreateLineBrush(&from, &to, 0xFF000000, 0xFF000000, WrapModeTile, &gradient), Ok);
    const Brush owner(gradient);
    const ARGB colours[] = {0x00A5C3FF, 0xC0A5C3FF, 0x00A5C3FF};
    const REAL places[] = {0.0F, 0.5F, 1.0F};
    ASSERT_EQ(GdipSetLinePresetBlend(gradient, colours, places, 3), Ok);
    GdipFillRectangle(canvas.Graphics(), gradient, 10, 0, 40, 2);
    for (int x = 10; x < 50; ++x) {
        const double fromMiddle = std::abs(x + 0.5 - 30) / 20;
        EXPECT_NEAR(canvas.AlphaAt(x, 0), 0xC0 * (1 - fromMiddle), 2) << x;
    }
    EXPECT_NEAR(canvas.At(30, 0) & 0xFF, canvas.AlphaAt(30, 0), 1) << "the colour fades to black";
    const REAL backwards[] = {0.0F, 1.5F, 1.0F};
    EXPECT_EQ(GdipSetLinePresetBlend(gradient, colours, backwards, 3), InvalidParameter);
    EXPECT_EQ(GdipSetLinePresetBlend(gradient, colours, places, 2), InvalidParameter);
}

TEST(PaintingShapes, AClipHoldsUntilItIsResetAndForOneGraphicsOnly) {
    const Canvas canvas(10, 10);
    GpGraphics* second = nullptr;
    ASSERT_EQ(GdipCreateFromHDC(canvas.Context(), &second), Ok);
    const Graphics owner(second);
    const Brush white = Solid(0xFFFFFFFF);
    GdipSetClipRect(canvas.Graphics(), 2, 2, 3, 3, CombineModeReplace);
    GdipFillRectangle(canvas.Graphics(), white.get(), 0, 0, 10, 10);
    EXPECT_EQ(canvas.AlphaAt(4, 4), 255);
    EXPECT_EQ(canvas.AlphaAt(5, 5), 0);
    GdipFillRectangle(second, white.get(), 8, 8, 1, 1);
    EXPECT_EQ(canvas.AlphaAt(8, 8), 255);
    GdipFillRectangle(canvas.Graphics(), white.get(), 0, 0, 10, 10);
    EXPECT_EQ(canvas.AlphaAt(9, 9), 0) << "the other graphics object took the clip away";
    GdipSetClipRect(canvas.Graphics(), 0, 0, -3, 5, CombineModeReplace);
    GdipFillRectangle(canvas.Graphics(), white.get(), 0, 0, 1, 1);
    EXPECT_EQ(canvas.AlphaAt(0, 0), 0) << "an empty clip is none";
    GdipResetClip(canvas.Graphics());
    GdipFillRectangle(canvas.Graphics(), white.get(), 0, 0, 10, 10);
    EXPECT_EQ(canvas.AlphaAt(9, 9), 255);
}

// ---- Plain text -------------------------------------------------------------------------------

constexpr int kPlain = 14; // pixels of the font

// A canvas with a font selected, in white on nothing.
class Sheet : public Canvas {
public:
    Sheet(int width, int height, const WCHAR* family = TEXT("Microsoft YaHei UI"))
        : Canvas(width, height), font_(PlainFont(kPlain, family)),
          former_(SelectObject(Context(), font_)) {
        SetTextColor(Context(), RGB(255, 255, 255));
        SetBkMode(Context(), TRANSPARENT);
    }
    ~Sheet() {
        SelectObject(Context(), former_);
        EXPECT_TRUE(DeleteObject(font_));
    }
    Sheet(const Sheet&) = delete;
    Sheet& operator=(const Sheet&) = delete;

    int Write(std::u16string_view text, RECT room, UINT flags) const {
        return DrawTextW(Context(), text.data(), static_cast<int>(text.size()), &room, flags);
    }
    // Width and height.
    SIZE Needed(std::u16string_view text, UINT flags, LONG width = 0) const {
        RECT room{0, 0, width, 0};
        DrawTextW(Context(), text.data(), static_cast<int>(text.size()), &room,
                  flags | DT_CALCRECT);
        return {room.right, room.bottom};
    }

private:
    HFONT font_;
    HGDIOBJ former_;
};

TEST(PaintingPlainText, StandsWhereTheFlagsPutItAndNeverOutsideItsRectangle) {
    struct Case {
        const char* fault;
        std::u16string_view text;
        UINT flags;
        LONG width; // of the rectangle
        RECT ink;   // in which the text's pixels are to lie, close to its edges
    };
    const LONG line = Sheet(8, 8).Needed(u"H", DT_SINGLELINE).cy;
    const LONG middle = 10 + (60 - line) / 2;
    const LONG wide = Sheet(8, 8).Needed(u"Hgj", DT_SINGLELINE).cx;
    const LONG arabic = Sheet(8, 8).Needed(u"\u0627\u0644\u0627", DT_SINGLELINE).cx;
    constexpr UINT one = DT_SINGLELINE | DT_NOPREFIX;
    const Case cases[] = {
        {"not at the top left", u"Hgj", one, 200, {20, 10, 20 + wide, 10 + line}},
        {"not centred",
         u"Hgj",
         one | DT_CENTER,
         200,
         {120 - wide / 2, 10, 120 + wide / 2, 10 + line}},
        {"not at the right", u"Hgj", one | DT_RIGHT, 200, {220 - wide, 10, 220, 10 + line}},
        {"not in the middle",
         u"Hgj",
         one | DT_VCENTER,
         200,
         {20, middle, 20 + wide, middle + line}},
        {"several lines in the middle", u"Hgj", DT_VCENTER, 200, {20, 10, 20 + wide, 10 + line}},
        {"runs over", u"Hgj Hgj Hgj Hgj Hgj Hgj", one, 60, {20, 10, 80, 10 + line}},
        {"cut too early",
         u"Hgj Hgj Hgj Hgj Hgj",
         one | DT_END_ELLIPSIS,
         60,
         {20, 10, 80, 10 + line}},
        {"not wrapped", u"Hgj Hgj", DT_WORDBREAK, wide + 2, {20, 10, 20 + wide, 10 + 2 * line}},
        {"a break is none", u"Hgj\r\nHgj", 0, 200, {20, 10, 20 + wide, 10 + 2 * line}},
        {"right to left at the right",
         u"\u0627\u0644\u0627",
         one,
         200,
         {20, 10, 20 + arabic, 10 + line}},
    };
    for (const Case& c : cases) {
        const Sheet sheet(260, 90);
        sheet.Write(c.text, {20, 10, 20 + c.width, 70}, c.flags);
        const RECT ink = sheet.Ink();
        EXPECT_GE(ink.left, c.ink.left) << c.fault;
        EXPECT_LE(ink.left, c.ink.left + 3) << c.fault;
        EXPECT_LE(ink.right, c.ink.right + 1) << c.fault;
        EXPECT_GE(ink.right, c.ink.right - 16) << c.fault;
        EXPECT_GE(ink.top, c.ink.top) << c.fault;
        EXPECT_LE(ink.bottom, c.ink.bottom) << c.fault;
        EXPECT_GE(ink.bottom, c.ink.bottom - 7) << c.fault;
    }
}

TEST(PaintingPlainText, SaysHowHighItIs) {
    const Sheet sheet(200, 100);
    const int line = sheet.Needed(u"H", DT_SINGLELINE).cy;
    const RECT room{5, 7, 180, 47};
    for (const std::u16string_view text : {u"H", u"", u"字幕", u"مرحبا", u"สวัสดี", u"😀", u"⏹"}) {
        EXPECT_EQ(sheet.Write(text, room, DT_SINGLELINE), line) << "jumps with the script";
    }
    EXPECT_EQ(sheet.Write(u"H", room, DT_SINGLELINE | DT_VCENTER), (40 - line) / 2 + line);
    EXPECT_EQ(sheet.Write(u"a\nb\nc", room, 0), 3 * line);
    EXPECT_EQ(sheet.Needed(u"a\nb\nc", DT_SINGLELINE).cy, line) << "a single line breaks";
    EXPECT_EQ(sheet.Needed(u"a\nb", DT_SINGLELINE).cx, sheet.Needed(u"a b", DT_SINGLELINE).cx);
    EXPECT_EQ(sheet
                  .Needed(u"a\x07\x1B"
                          u"b",
                          DT_SINGLELINE)
                  .cx,
              sheet.Needed(u"ab", DT_SINGLELINE).cx);
    EXPECT_EQ(sheet.Needed(u"some words", DT_WORDBREAK, 50).cy, 2 * line);
    RECT extent{0, 0, 9, 9};
    EXPECT_EQ(DrawTextW(sheet.Context(), u"two\nlines", -1, &extent, DT_CALCRECT), 2 * line);
    EXPECT_EQ(extent.bottom, 2 * line) << "a text of length -1 ends at its zero";
}

TEST(PaintingPlainText, WordsFollowEachOtherFromTheLeftInAnyScript) {
    const std::u16string_view mixed = u"\u0645\u0645\u0645 WWW";
    const Sheet sheet(200, 30);
    sheet.Write(mixed, {0, 0, 200, 30}, DT_SINGLELINE);
    const Sheet arabic(200, 30);
    arabic.Write(mixed.substr(0, 3), {0, 0, 200, 30}, DT_SINGLELINE);
    const LONG end = arabic.Ink().right;
    for (LONG x = 0; x < end; ++x) {
        for (int y = 0; y < 30; ++y) {
            ASSERT_EQ(sheet.At(x, y), arabic.At(x, y)) << "the Latin word stands first";
        }
    }
}

TEST(PaintingPlainText, TakesColoursFontAndBackgroundOfItsContext) {
    const Sheet sheet(60, 30);
    EXPECT_EQ(GetTextColor(sheet.Context()), RGB(255, 255, 255));
    EXPECT_EQ(SetTextColor(sheet.Context(), RGB(0xFF, 0x80, 0)), RGB(255, 255, 255));
    EXPECT_EQ(SetBkColor(sheet.Context(), RGB(0, 0, 0x40)), RGB(255, 255, 255));
    EXPECT_EQ(GetBkColor(sheet.Context()), RGB(0, 0, 0x40));
    EXPECT_EQ(SetBkMode(sheet.Context(), OPAQUE), TRANSPARENT);
    EXPECT_EQ(SetBkMode(sheet.Context(), 7), 0);
    sheet.Write(u"█", {0, 0, 60, 30}, DT_SINGLELINE); // a block as large as its em
    EXPECT_EQ(sheet.At(5, 10), 0xFFFF8000U);
    sheet.Write(u"  .", {20, 0, 60, 30}, DT_SINGLELINE);
    EXPECT_EQ(sheet.At(22, 4), 0xFF000040U) << "no background";
    EXPECT_EQ(sheet.At(59, 4), 0U) << "a background beside the text";

    HFONT bold = PlainFont(kPlain, TEXT("Microsoft YaHei UI"), FW_SEMIBOLD);
    const LONG regular = sheet.Needed(u"Overlay", DT_SINGLELINE).cx;
    HGDIOBJ former = SelectObject(sheet.Context(), bold);
    EXPECT_TRUE(DeleteObject(bold));
    EXPECT_GT(sheet.Needed(u"Overlay", DT_SINGLELINE).cx, regular) << "a deleted font is lost";
    EXPECT_EQ(SelectObject(sheet.Context(), former), bold);
}

// Pictures in colours of their own would hide that a button is disabled.
TEST(PaintingPlainText, SymbolsTakeTheTextsColourUnlessTheyAreEmoji) {
    const auto hasRed = [](std::u16string_view text) {
        const Sheet sheet(40, 30);
        SetTextColor(sheet.Context(), RGB(0, 0, 255));
        sheet.Write(text, {0, 0, 40, 30}, DT_SINGLELINE);
        EXPECT_GT(sheet.Ink().right, 0) << "nothing to be seen";
        const std::vector<DWORD> pixels = sheet.Pixels();
        return std::any_of(pixels.begin(), pixels.end(),
                           [](DWORD pixel) { return (pixel >> 16 & 0xFF) > 0x40; });
    };
    for (const std::u16string_view text :
         {u"▶", u"⏹", u"⚠", u"⏸", u"☎", u"⌨", u"⇄", u"⚡\uFE0E"}) {
        EXPECT_FALSE(hasRed(text)) << std::hex << int{text[0]};
    }
    if (hasRed(u"😀")) { // where a font with colours is installed
        EXPECT_TRUE(hasRed(u"⚡"));
        EXPECT_TRUE(hasRed(u"⌚"));
    }
}

TEST(PaintingPlainText, IconsComeFromTheIconFontAndOtherSignsFromAnother) {
    if (Icons(10) == nullptr) {
        GTEST_SKIP() << "the icon font is not installed";
    }
    const auto picture = [](std::u16string_view text) {
        const Sheet sheet(40, 40, TEXT("Segoe MDL2 Assets"));
        sheet.Write(text, {0, 0, 40, 40}, DT_SINGLELINE | DT_CENTER | DT_VCENTER);
        const RECT ink = sheet.Ink();
        EXPECT_NEAR(ink.left + ink.right, 40, 4) << std::hex << int{text[0]};
        EXPECT_NEAR(ink.top + ink.bottom, 40, 6) << std::hex << int{text[0]};
        return sheet.Pixels();
    };
    std::vector<std::vector<DWORD>> seen{picture(u"\xFFFD")};
    for (const std::u16string_view text : {u"\xE720", u"\xE767", u"\xE72C", u"⇄"}) {
        seen.push_back(picture(text));
        for (std::size_t i = 0; i + 1 < seen.size(); ++i) {
            EXPECT_NE(seen[i], seen.back()) << std::hex << int{text[0]};
        }
    }
}

// ---- Pictures copied to windows ---------------------------------------------------------------

TEST(PaintingContexts, WhatIsCopiedToAWindowIsOpaqueAndKeepsToItsOriginAndClip) {
    QImage window(20, 20, QImage::Format_ARGB32_Premultiplied);
    window.fill(0xFF010101U);
    HDC target = painting::OpenContext(window, {5, 5}, {6, 5, 12, 12});
    const Canvas source(30, 30);
    GdipFillRectangle(source.Graphics(), Solid(0x80FF0000).get(), 0, 0, 30, 30);
    GdipFillRectangle(source.Graphics(), Solid(0xFF00FF00).get(), 4, 4, 1, 1);
    GdipFillRectangle(source.Graphics(), Solid(0xFFFFFFFF).get(), 29, 29, 1, 1);
    EXPECT_TRUE(BitBlt(target, -3, -3, 30, 30, source.Context(), 1, 1, SRCCOPY));
    for (int y = 0; y < 20; ++y) {
        for (int x = 0; x < 20; ++x) {
            const bool inside = x >= 6 && x < 12 && y >= 5 && y < 12;
            EXPECT_EQ(window.pixel(x, y) == 0xFF010101U, !inside) << x << ' ' << y;
        }
    }
    EXPECT_EQ(window.pixel(7, 7), 0xFF800000U);
    EXPECT_TRUE(BitBlt(target, 2, 2, 1, 1, source.Context(), 4, 4, SRCCOPY));
    EXPECT_EQ(window.pixel(7, 7), 0xFF00FF00U) << "not at its origin";
    EXPECT_TRUE(BitBlt(target, 0, 0, 9, 9, source.Context(), 28, 28, SRCCOPY));
    EXPECT_EQ(window.pixel(6, 6), 0xFFFFFFFFU) << "the source's last pixel is lost";
    EXPECT_EQ(window.pixel(7, 7), 0xFF00FF00U) << "beyond the source's edge";

    // All other drawing keeps to the two as well.
    const RECT all{-9, -9, 30, 30};
    HBRUSH blue = CreateSolidBrush(RGB(0, 0, 255));
    FillRect(target, &all, blue);
    DeleteObject(blue);
    GpGraphics* made = nullptr;
    ASSERT_EQ(GdipCreateFromHDC(target, &made), Ok);
    const Graphics graphics(made);
    GdipFillRectangle(made, Solid(0xFFFFFFFF).get(), 3, 3, 1, 1);
    EXPECT_EQ(window.pixel(6, 5), 0xFF0000FFU);
    EXPECT_EQ(window.pixel(8, 8), 0xFFFFFFFFU);
    GdipGraphicsClear(made, 0xFF111111);
    EXPECT_EQ(window.pixel(6, 5), 0xFF111111U);
    EXPECT_EQ(window.pixel(11, 11), 0xFF111111U);
    EXPECT_EQ(window.pixel(5, 5), 0xFF010101U);
    EXPECT_EQ(window.pixel(12, 11), 0xFF010101U);
    painting::CloseContext(target);
}

TEST(PaintingContexts, ACompatibleBitmapIsBlackAndStaysOpaque) {
    const Canvas other(8, 8);
    HDC context = CreateCompatibleDC(other.Context());
    HBITMAP bitmap = CreateCompatibleBitmap(other.Context(), 8, 8);
    HGDIOBJ former = SelectObject(context, bitmap);
    EXPECT_TRUE(BitBlt(other.Context(), 0, 0, 8, 8, context, 0, 0, SRCCOPY));
    EXPECT_EQ(other.At(7, 7), 0xFF000000U);
    GpGraphics* made = nullptr;
    ASSERT_EQ(GdipCreateFromHDC(context, &made), Ok);
    const Graphics graphics(made);
    GdipGraphicsClear(made, 0x00FFFFFF);
    GdipFillRectangle(made, Solid(0x80FF0000).get(), 0, 0, 4, 8);
    // Within one bitmap, too, each pixel is read before it is written.
    EXPECT_TRUE(BitBlt(context, 2, 0, 6, 8, context, 0, 0, SRCCOPY));
    EXPECT_TRUE(BitBlt(other.Context(), 0, 0, 8, 8, context, 0, 0, SRCCOPY));
    EXPECT_EQ(other.At(5, 0) & 0xFFFF00FFU, 0xFF800000U);
    EXPECT_EQ(other.AlphaAt(7, 0), 255);
    EXPECT_EQ(other.At(7, 0) & 0xFF0000U, 0U);
    SelectObject(context, former);
    EXPECT_TRUE(DeleteObject(bitmap));
    EXPECT_TRUE(DeleteDC(context));
}

// ---- Handles and senseless arguments ----------------------------------------------------------

TEST(PaintingContexts, HandlesThatAreNotOrNoLongerThereAreRefused) {
    void* bits = nullptr;
    EXPECT_EQ(MakeBitmap(4, 4, &bits), nullptr) << "the last row first";
    EXPECT_EQ(MakeBitmap(0, -4, &bits), nullptr);
    EXPECT_EQ(MakeBitmap(1 << 20, -(1 << 20), &bits), nullptr);
    EXPECT_EQ(bits, nullptr);
    HDC context = CreateCompatibleDC(nullptr);
    EXPECT_EQ(painting::PictureOf(context), nullptr);
    EXPECT_EQ(painting::PictureOf(nullptr), nullptr);
    {
        const Canvas canvas(3, 3);
        EXPECT_EQ(SelectObject(context, canvas.Bitmap()), nullptr) << "held by two contexts";
        EXPECT_FALSE(DeleteObject(canvas.Bitmap())) << "destroyed while a context draws on it";
        EXPECT_EQ(painting::PictureOf(canvas.Context())->width(), 3);
    }
    EXPECT_EQ(ReleaseDC(nullptr, context), 0);
    EXPECT_TRUE(DeleteDC(context));
    EXPECT_FALSE(DeleteDC(context));
    EXPECT_EQ(SelectObject(context, nullptr), nullptr);
    EXPECT_EQ(GetDeviceCaps(context, LOGPIXELSX), 0);
    EXPECT_EQ(CreateCompatibleDC(context), nullptr);
    GpGraphics* graphics = nullptr;
    EXPECT_EQ(GdipCreateFromHDC(context, &graphics), InvalidParameter);
    RECT all{0, 0, 9, 9};
    EXPECT_EQ(FillRect(context, &all, nullptr), 0);
    EXPECT_FALSE(DeleteObject(nullptr));
    EXPECT_EQ(CreateCompatibleBitmap(context, 4, 4), nullptr);
    EXPECT_EQ(SetTextColor(context, 0), CLR_INVALID);
    EXPECT_EQ(SetBkMode(context, OPAQUE), 0);
    EXPECT_EQ(DrawTextW(context, u"x", 1, &all, 0), 0);
    EXPECT_FALSE(BitBlt(context, 0, 0, 4, 4, context, 0, 0, SRCCOPY));
}

TEST(PaintingContexts, FontsAndStockObjectsThatAreNotThereDoNoHarm) {
    const Canvas canvas(20, 20);
    RECT all{0, 0, 20, 20};
    HGDIOBJ empty = GetStockObject(NULL_BRUSH);
    EXPECT_TRUE(DeleteObject(empty));
    EXPECT_EQ(FillRect(canvas.Context(), &all, static_cast<HBRUSH>(empty)), 1);
    EXPECT_EQ(canvas.At(3, 3), 0U) << "filled with nothing, and yet changed";
    EXPECT_EQ(GetStockObject(-1), nullptr);
    EXPECT_EQ(CreateFontW(0, 0, 0, 0, 400, 0, 0, 0, 0, 0, 0, 0, 0, nullptr), nullptr);
    EXPECT_EQ(PlainFont(1 << 20, nullptr), nullptr);

    HFONT font = PlainFont(20, nullptr);
    EXPECT_EQ(SelectObject(canvas.Context(), font), GetStockObject(SYSTEM_FONT));
    EXPECT_EQ(painting::FontOf(font).pixelSize(), 20);
    EXPECT_TRUE(DeleteObject(font));
    EXPECT_FALSE(DeleteObject(font));
    EXPECT_EQ(painting::FontOf(font), painting::FontOf(nullptr));
    EXPECT_EQ(SelectObject(canvas.Context(), font), nullptr);

    EXPECT_EQ(DrawTextW(canvas.Context(), nullptr, 1, &all, 0), 0);
    EXPECT_EQ(DrawTextW(canvas.Context(), u"x", -2, &all, 0), 0);
    EXPECT_EQ(DrawTextW(canvas.Context(), u"x", 1, nullptr, 0), 0);
    constexpr LONG most = std::numeric_limits<LONG>::max();
    RECT endless{-most, -most, most, most};
    EXPECT_GT(DrawTextW(canvas.Context(), u"x", 1, &endless, DT_SINGLELINE | DT_CENTER), 0);
    RECT reversed{15, 15, 5, 5};
    EXPECT_GT(DrawTextW(canvas.Context(), u"x", 1, &reversed, DT_END_ELLIPSIS), 0);
    EXPECT_EQ(canvas.Ink().right, 0) << "text outside its rectangle";
    EXPECT_FALSE(BitBlt(canvas.Context(), most, 0, most, 1, canvas.Context(), 0, 0, SRCCOPY));
    EXPECT_TRUE(BitBlt(canvas.Context(), 0, 0, -4, 4, canvas.Context(), 0, 0, SRCCOPY));
}

TEST(PaintingContexts, GraphicsThatOutliveTheirContextDrawNowhere) {
    GpGraphics* made = nullptr;
    {
        QImage picture(4, 4, QImage::Format_ARGB32_Premultiplied);
        picture.fill(0);
        HDC context = painting::OpenContext(picture);
        EXPECT_EQ(painting::PictureOf(context), &picture);
        ASSERT_EQ(GdipCreateFromHDC(context, &made), Ok);
        EXPECT_EQ(GdipFillRectangle(made, Solid(0xFF123456).get(), 0, 0, 4, 4), Ok);
        EXPECT_EQ(picture.pixel(3, 3), 0xFF123456U);
        EXPECT_FALSE(DeleteDC(context)) << "a window's own context is not the program's";
        painting::CloseContext(context);
    }
    const Graphics graphics(made);
    EXPECT_EQ(GdipFillRectangle(made, Solid(0xFF123456).get(), 0, 0, 4, 4), GenericError);
    EXPECT_EQ(GdipGraphicsClear(made, 0), GenericError);
}

TEST(PaintingArguments, NullAndWhatIsNoNumberFailCleanly) {
    const Canvas canvas(20, 20);
    GpGraphics* graphics = canvas.Graphics();
    const Font font = SansSerif(kPoints);
    const Brush brush = Solid(0xFFFFFFFF);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinite = std::numeric_limits<float>::infinity();
    const RectF senseless[] = {
        {nan, 0, 9, 9}, {0, 0, nan, 9}, {0, 0, infinite, 9}, {0, -3e38F, 9, 9}};
    RectF box;
    for (const RectF& room : senseless) {
        EXPECT_EQ(GdipMeasureString(graphics, u"x", 1, font.get(), &room, nullptr, &box, nullptr,
                                    nullptr),
                  InvalidParameter);
        EXPECT_EQ(GdipDrawString(graphics, u"x", 1, font.get(), &room, nullptr, brush.get()),
                  InvalidParameter);
        EXPECT_EQ(GdipFillRectangle(graphics, brush.get(), room.X, room.Y, room.Width, room.Height),
                  InvalidParameter);
        EXPECT_EQ(GdipAddPathArc(RoundedRectangle(0, 0, 9, 9, 3).get(), room.X, room.Y, room.Width,
                                 room.Height, 0, 90),
                  InvalidParameter);
    }
    const RectF room(0, 0, 1e6F, 1e6F);
    canvas.Draw(u"x", font.get(), room, MakeFormat(0, StringAlignmentCenter).get());
    canvas.Draw(u"x", font.get(), {-1e6F, -1e6F, 20, 20}, nullptr);
    EXPECT_EQ(canvas.Ink().right, 0) << "far away, and yet in the picture";
    EXPECT_EQ(
        GdipMeasureString(graphics, nullptr, 1, font.get(), &room, nullptr, &box, nullptr, nullptr),
        InvalidParameter);
    EXPECT_EQ(
        GdipMeasureString(graphics, u"x", -2, font.get(), &room, nullptr, &box, nullptr, nullptr),
        InvalidParameter);
    EXPECT_EQ(GdipDrawString(graphics, u"x", 1, nullptr, &room, nullptr, brush.get()),
              InvalidParameter);
    EXPECT_EQ(GdipFillPath(graphics, brush.get(), nullptr), InvalidParameter);
    EXPECT_EQ(GdipDrawLine(graphics, nullptr, 0, 0, 1, 1), InvalidParameter);
    GpFont* none = nullptr;
    EXPECT_EQ(GdipCreateFont(nullptr, 9, 0, UnitPoint, &none), InvalidParameter);
    GpFontFamily* family = nullptr;
    EXPECT_EQ(GdipCreateFontFamilyFromName(u"No Such Family", nullptr, &family),
              FontFamilyNotFound);
    EXPECT_EQ(family, nullptr);
    ASSERT_EQ(GdipGetGenericFontFamilySansSerif(&family), Ok);
    for (const float size : {0.0F, -3.0F, nan, 1e5F}) {
        EXPECT_EQ(GdipCreateFont(family, size, 0, UnitPoint, &none), InvalidParameter);
    }
}

} // namespace

#include <windows.h>

#include <gdiplus.h>

#include "painting/fonts.h"
#include "painting/picture.h"
#include "painting/text_layout.h"

#include <gtest/gtest.h>

#include <QImage>

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
    for (float width = 30; width < whole; width += 7.25F) {
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
    GpPen* made = nullptr;
    ASSERT_EQ(GdipCreatePen1(0xFFFFFFFF, 1, UnitWorld, &made), Ok);
    const Pen pen(made);
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
    const RECT all{0, 0, 9, 9};
    EXPECT_EQ(FillRect(context, &all, nullptr), 0);
    EXPECT_FALSE(DeleteObject(nullptr));
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

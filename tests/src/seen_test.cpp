// What the user sees: the pictures that the windows show, looked at in the places that the layout
// functions name. Everything is done twice, on a screen of 96 DPI and on one of 192.
#include "config_popup_layout.h"
#include "dpi.h"
#include "overlay_probe.h"
#include "popup_probe.h"
#include "scripted_endpoints.h"
#include "windowing/pushed_picture.h"

#include <QCursor>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <map>

namespace {

int ScreenDpi() {
    const char* dpi = std::getenv("KELVARIN_SCREEN_DPI");
    return dpi != nullptr ? std::atoi(dpi) : 96;
}

// ---- Looking -----------------------------------------------------------------------------------

constexpr std::uint32_t kDark = 0x0E0E16;  // the overlay
constexpr std::uint32_t kPopup = 0x121220; // the settings

int Distance(std::uint32_t a, std::uint32_t b) {
    int most = 0;
    for (const int shift : {0, 8, 16}) {
        most = std::max(most, std::abs(static_cast<int>(a >> shift & 0xFF) -
                                       static_cast<int>(b >> shift & 0xFF)));
    }
    return most;
}

// What differs from the ground of a place.
struct Ink {
    int count = 0;
    RECT box{};
    std::uint32_t strongest = 0; // the pixel farthest from the ground
    std::string shape;           // row by row, from the box's corner

    int Width() const { return box.right - box.left; }
    int Height() const { return box.bottom - box.top; }
};

// A window's contents, RGB as they were before the constant alpha.
class Look {
public:
    explicit Look(HWND window)
        : picture_(windowing::PushedPicture(window).convertToFormat(
              QImage::Format_ARGB32_Premultiplied)) {}

    int Width() const { return picture_.width(); }
    int Height() const { return picture_.height(); }
    int Alpha(int x, int y) const { return qAlpha(picture_.pixel(x, y)); }
    std::uint32_t At(int x, int y) const {
        return picture_.rect().contains(x, y) ? picture_.pixelColor(x, y).rgb() & 0xFFFFFF : 0;
    }
    std::uint32_t At(float x, float y) const {
        return At(static_cast<int>(x), static_cast<int>(y));
    }
    // `threshold`: of a channel's 255; what differs by less is ground.
    Ink In(const RECT& area, std::uint32_t ground, int threshold = 48) const {
        Ink ink;
        ink.box = {area.right, area.bottom, area.left, area.top};
        for (int y = area.top; y < area.bottom; ++y) {
            for (int x = area.left; x < area.right; ++x) {
                if (Distance(At(x, y), ground) < threshold) {
                    continue;
                }
                ++ink.count;
                ink.box = {std::min<LONG>(ink.box.left, x), std::min<LONG>(ink.box.top, y),
                           std::max<LONG>(ink.box.right, x + 1),
                           std::max<LONG>(ink.box.bottom, y + 1)};
                if (Distance(At(x, y), ground) > Distance(ink.strongest, ground) ||
                    ink.count == 1) {
                    ink.strongest = At(x, y);
                }
            }
        }
        for (int y = ink.box.top; y < ink.box.bottom; ++y) {
            for (int x = ink.box.left; x < ink.box.right; ++x) {
                ink.shape += Distance(At(x, y), ground) < threshold ? '.' : '#';
            }
            ink.shape += '\n';
        }
        return ink;
    }

private:
    QImage picture_;
};

RECT BoxOf(const ControlBox& box) {
    return {box.x, box.y, box.x + box.w, box.y + box.h};
}

::testing::AssertionResult Near(std::uint32_t seen, std::uint32_t wanted, int tolerance = 3) {
    if (Distance(seen, wanted) <= tolerance) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << std::hex << seen << " instead of " << wanted;
}

// `value` is what `atNormal` becomes on this screen, give or take `slack` of it.
::testing::AssertionResult Scaled(int value, float atNormal, float slack = 0.2F) {
    const float wanted = atNormal * static_cast<float>(DpiScale) / 96.0F;
    if (std::abs(static_cast<float>(value) - wanted) <= wanted * slack) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << value << " instead of " << wanted;
}

class Seen : public testing::Test {
protected:
    // Before the first window. To the right stands a screen of the other DPI.
    static void SetUpTestSuite() {
        const int dpi = ScreenDpi();
        const std::string file = std::string(std::getenv("HOME")) + "/screens.json";
        std::ofstream(file) << R"({"screens": [
            {"name": "left", "x": 0, "y": 0, "width": 3000, "height": 2400, "logicalDpi": )"
                            << dpi << R"(},
            {"name": "right", "x": 3000, "y": 0, "width": 3000, "height": 2400, "logicalDpi": )"
                            << 288 - dpi << "}]}";
        setenv("QT_QPA_PLATFORM", ("offscreen:configfile=" + file).c_str(), 1);
    }
    Seen() { DpiScale = ScreenDpi(); }
};

// ---- The overlay -------------------------------------------------------------------------------

class SeenOverlay : public Seen {
protected:
    Look Picture() const { return Look(overlay.Window()); }
    ToolbarLayout Toolbar() const {
        RECT client;
        GetClientRect(overlay.Window(), &client);
        return LayOutToolbar(client.right, S(kHeaderHeight), overlay.IsRunning());
    }
    RECT Rect(int id) const {
        const ToolbarRect r = overlay.Button(id);
        return {r.left, r.top, r.right, r.bottom};
    }
    // A button's glyph, clear of the outline of its fill.
    Ink Glyph(int id) const {
        RECT r = Rect(id);
        InflateBy(r, -S(3));
        const Look look = Picture();
        return look.In(r, look.At(static_cast<int>(r.left), static_cast<int>(r.top)));
    }
    static void InflateBy(RECT& r, int by) {
        r = {r.left - by, r.top - by, r.right + by, r.bottom + by};
    }
    // The status line's place.
    RECT StatusPlace() const {
        return {0, S(kHeaderHeight) + 3, S(kOverlayWidth), overlay.CaptionArea().top - 1};
    }

    OverlayProbe overlay;
};

TEST_F(SeenOverlay, IsADarkCardWithRoundCornersThatLetsALittleThrough) {
    const Look look = Picture();
    EXPECT_EQ(look.Width(), S(kOverlayWidth));
    EXPECT_EQ(look.Height(), S(kSmallestOverlayHeight));
    EXPECT_EQ(look.Alpha(S(100), S(300)), 220);
    EXPECT_EQ(look.Alpha(0, 0), 0);
    EXPECT_TRUE(Near(look.At(S(100), S(300)), kDark));
    EXPECT_GT(Distance(look.At(S(30), 1), kDark), 12) << "the header is lighter at its top";
    EXPECT_TRUE(Near(look.At(S(200), S(38)), kDark, 4)) << "and fades";
    const std::uint32_t line = Blend(kDark, 0x1EFFFFFF);
    EXPECT_TRUE(Near(look.At(S(200), S(40)), line, 16));
    EXPECT_GT(Distance(look.At(S(200), S(40)), kDark), 8);
    for (const int x : {S(5), S(kOverlayWidth) - S(5)}) {
        EXPECT_TRUE(Near(look.At(x, S(40)), kDark)) << "the line leaves a margin";
    }
}

TEST_F(SeenOverlay, SaysItsNameInTheHeader) {
    const ToolbarLayout layout = Toolbar();
    const auto left = static_cast<int>(layout.titleLeft);
    const Ink title =
        Picture().In({left, S(6), left + static_cast<int>(layout.titleWidth), S(36)}, kDark, 80);
    EXPECT_TRUE(Scaled(title.Width(), 58));
    EXPECT_TRUE(Scaled(title.Height(), 11));
    EXPECT_NEAR(title.box.left, left, S(4));
    EXPECT_NEAR((title.box.top + title.box.bottom) / 2, S(20), S(3));
    EXPECT_TRUE(Near(title.strongest, Blend(kDark, 0xBEFFFFFF), 24));
}

TEST_F(SeenOverlay, HasAButtonForEachCommandWithAnIconOfItsOwn) {
    struct Case {
        int id;
        WCHAR glyph;
        const char* tooltip;
        bool lit;
    };
    const Case cases[] = {{kSettingsButton, 0xE713, "Settings", false},
                          {kTranslationButton, 0xE775, "Toggle translation", true},
                          {kMicrophoneButton, 0xE720, "Microphone", true},
                          {kLoopbackButton, 0xE767, "Speaker (loopback)", false},
                          {kStartButton, 0xE768, "Start recognition", false},
                          {kClearButton, 0xE107, "Clear captions", false},
                          {kHideButton, 0xE106, "Hide window", false},
                          {kStopButton, 0xE769, "Stop recognition", false}};
    std::map<std::string, int> shapes;
    LONG right = 0; // of the button before: they stand from left to right
    for (const Case& one : cases) {
        if (one.id == kStopButton) {
            overlay.Send(kMsgStarted);
        }
        const auto buttons = Toolbar().buttons;
        const auto button = std::find_if(buttons.begin(), buttons.end(),
                                         [&](const auto& b) { return b.id == one.id; });
        ASSERT_NE(button, buttons.end()) << one.tooltip;
        EXPECT_EQ(button->glyph, one.glyph) << one.tooltip;
        EXPECT_EQ(WideToUtf8(ToolbarTooltip(one.id)), one.tooltip);
        const RECT place = Rect(one.id);
        EXPECT_TRUE(one.id == kStopButton || place.left >= right) << one.tooltip;
        right = place.right;
        const Ink glyph = Glyph(one.id);
        EXPECT_GT(glyph.count, S(10)) << one.tooltip;
        EXPECT_TRUE(Scaled(std::max(glyph.Width(), glyph.Height()),
                           one.id == kHideButton ? 6.5F : 11.5F, 0.4F))
            << one.tooltip;
        EXPECT_NEAR(glyph.box.left + glyph.box.right, place.left + place.right, S(4))
            << one.tooltip;
        EXPECT_TRUE(Near(glyph.strongest,
                         Blend(Blend(kDark, 0x08FFFFFF), one.lit ? 0xF53DDC84 : 0x9BFFFFFF), 28))
            << one.tooltip;
        const auto [same, fresh] = shapes.emplace(glyph.shape, one.id);
        EXPECT_TRUE(fresh) << one.tooltip << " looks like " << same->second;
    }
    EXPECT_EQ(ToolbarTooltip(kNoButton), nullptr);
    const Look look = Picture();
    EXPECT_EQ(Toolbar().separators.size(), 3u);
    for (const float x : Toolbar().separators) {
        EXPECT_GT(Distance(look.At(x, F(20)), look.At(x + F(2), F(20))), 8) << x;
        EXPECT_LT(Distance(look.At(x, F(11)), look.At(x + F(2), F(11))), 4) << "three fifths high";
    }
}

TEST_F(SeenOverlay, LightsAButtonByWhatItSwitchesAndWhereThePointerIs) {
    struct Case {
        int id;
        bool hovered;
        bool pressed;
        std::uint32_t fill;
        std::uint32_t outline;
        std::uint32_t glyph;
    };
    for (const Case& c : {Case{kMicrophoneButton, false, false, 0x373DDC84, 0x963DDC84, 0xF53DDC84},
                          Case{kMicrophoneButton, true, false, 0x553DDC84, 0xC83DDC84, 0xF53DDC84},
                          Case{kMicrophoneButton, true, true, 0x783DDC84, 0xE63DDC84, 0xF53DDC84},
                          Case{kLoopbackButton, true, false, 0xFF282840, 0x50FFFFFF, 0xE1FFFFFF},
                          Case{kLoopbackButton, true, true, 0x46A0A0C8, 0x82FFFFFF, 0xE1FFFFFF}}) {
        const RECT r = Rect(c.id);
        if (c.hovered) {
            overlay.Move(r.left + S(4), r.top + S(4));
        }
        if (c.pressed) {
            overlay.Press(r.left + S(4), r.top + S(4));
        }
        const Look look = Picture();
        const std::uint32_t ground = Blend(kDark, 0x08FFFFFF);
        const std::uint32_t fill = Blend(ground, c.fill);
        const int middle = (r.top + r.bottom) / 2;
        EXPECT_TRUE(Near(look.At(static_cast<int>(r.left) + S(3), middle), fill, 8));
        int outline = 0;
        for (int x = r.left - 1; x < r.left + 3; ++x) {
            outline = std::max(outline, Distance(look.At(x, middle), ground));
        }
        EXPECT_GT(outline, Distance(fill, ground) + 8);
        EXPECT_TRUE(Near(Glyph(c.id).strongest, Blend(fill, c.glyph), 40));
        overlay.Send(WM_MOUSELEAVE);
    }
}

TEST_F(SeenOverlay, ShowsByItsDotWhetherItListens) {
    const RECT place{S(2), S(8), S(21), S(32)};
    const Ink idle = Picture().In(place, Blend(kDark, 0x06FFFFFF), 18);
    EXPECT_TRUE(Scaled(idle.Width(), 8, 0.15F));
    EXPECT_NEAR(idle.box.left + idle.box.right, 2 * S(14), S(1));
    EXPECT_NEAR(idle.box.top + idle.box.bottom, 2 * S(20), S(1));
    EXPECT_TRUE(Near(Picture().At(S(14), S(20)), Blend(Blend(kDark, 0x0BFFFFFF), 0x468888AA), 4));
    overlay.Send(kMsgStarted);
    const Ink lit = Picture().In(place, Blend(kDark, 0x06FFFFFF), 14);
    EXPECT_TRUE(Scaled(lit.Width(), 12, 0.15F)) << "with its halo";
    EXPECT_TRUE(Near(Picture().At(S(14), S(20)), 0x3DDC84));
}

TEST_F(SeenOverlay, SaysWhatToDoInTheStatusLineWithTheIconsOfTheButtons) {
    Ink line = Picture().In(StatusPlace(), kDark, 30);
    EXPECT_TRUE(Near(line.strongest, Blend(kDark, 0x73FFFFFF), 12));
    EXPECT_TRUE(Scaled(line.Width(), 215));
    EXPECT_NEAR(line.box.left + line.box.right, S(kOverlayWidth), S(14)) << "centred";
    const int icons = line.Height();
    overlay.Command(kClearButton);
    line = Picture().In(StatusPlace(), kDark, 30);
    EXPECT_TRUE(Scaled(line.Width(), 50, 0.25F)) << "Cleared";
    EXPECT_NEAR(line.box.left + line.box.right, S(kOverlayWidth), S(6));
    EXPECT_LE(line.Height(), icons);
    overlay.Error("internal_error");
    line = Picture().In(StatusPlace(), kDark, 30);
    EXPECT_TRUE(Near(line.strongest, Blend(kDark, 0xDCFF6B6B), 20));
    overlay.Send(kMsgStarted);
    EXPECT_EQ(overlay.CaptionArea().top, S(kHeaderHeight) + 4) << "no line, no room for one";
}

TEST_F(SeenOverlay, ShowsWhatWasSaidAboveWhatItMeans) {
    overlay.Send(kMsgStarted);
    for (const bool isFinal : {false, true}) {
        overlay.Result("original words", "translated words", isFinal);
        const Look look = Picture();
        const RECT area = overlay.CaptionArea();
        const auto height = static_cast<int>(overlay.ContentHeight());
        const int left = S(10);
        const int right = S(kOverlayWidth) - S(4) - S(10) - 4;
        const std::uint32_t card = Blend(kDark, isFinal ? 0x12FFFFFF : 0x06FFFFFF);
        EXPECT_TRUE(Near(look.At(right - 12, static_cast<int>(area.top) + 3), card, 2));
        EXPECT_TRUE(Near(look.At(right - 12, static_cast<int>(area.top) + height - 3), card, 2));
        EXPECT_TRUE(Near(look.At(right + 2, static_cast<int>(area.top) + 20), kDark, 1));
        EXPECT_TRUE(Near(look.At(left, static_cast<int>(area.top)), kDark, 3)) << "round";
        const int middle = area.top + height / 2;
        EXPECT_TRUE(Near(look.At(left + 1, middle), isFinal ? Blend(card, 0x5AA5C3FF) : card, 4))
            << "the bar";
        EXPECT_TRUE(Near(look.At(left + 5, middle), card, 2));
        EXPECT_TRUE(Near(look.At(left + 1, static_cast<int>(area.top) + 3), card, 8))
            << "the bar keeps off the corners";

        // The line between the two texts: the translation's letters are the larger ones.
        const int between = area.top + 6 + (height - 18) * 9 / 20;
        const Ink original = look.In({left + 6, area.top, right, between}, card, 20);
        const Ink translated = look.In({left + 6, between, right, area.top + height}, card, 40);
        EXPECT_NEAR(original.box.left, left + 10, S(3));
        EXPECT_NEAR(translated.box.left, left + 10, S(3));
        EXPECT_TRUE(Scaled(original.Width(), 91, 0.25F));
        EXPECT_TRUE(Scaled(translated.Width(), 129, 0.25F));
        EXPECT_TRUE(Near(original.strongest, Blend(card, isFinal ? 0x82A5C3FF : 0x55A5C3FF), 24));
        EXPECT_TRUE(Near(translated.strongest, Blend(card, isFinal ? 0xF0EFEFEF : 0xAAEFEFEF), 30));
        EXPECT_NEAR(original.box.top, area.top + 6 + S(3), S(3));
    }
    const float both = overlay.ContentHeight();
    overlay.Command(kTranslationButton);
    EXPECT_LT(overlay.ContentHeight(), both - F(10));
    const RECT card{S(10) + 6, overlay.CaptionArea().top, S(300),
                    overlay.CaptionArea().top + S(100)};
    EXPECT_LT(Distance(Picture().In(card, kDark, 60).strongest, kDark), 0xB0) << "no translation";
}

TEST_F(SeenOverlay, LosesNoWordOfALongCaptionAndKeepsItInItsPlace) {
    overlay.Send(kMsgStarted);
    // Words as wide as the card's text: each has a line of its own.
    std::string text;
    for (int i = 0; i < 8; ++i) {
        text += std::string(12, 'M') + " " + std::string(12, 'W') + " ";
    }
    overlay.Result(text, "");
    const float one = overlay.ContentHeight();
    const RECT area = overlay.CaptionArea();
    const Ink ink = Picture().In({S(10) + 6, area.top, S(kOverlayWidth), area.bottom},
                                 Blend(kDark, 0x12FFFFFF), 20);
    EXPECT_NEAR(ink.box.bottom, static_cast<float>(area.top) + one - 8, S(6))
        << "the last line is there";
    EXPECT_LE(ink.box.right, S(kOverlayWidth) - S(10)) << "nothing beyond the card";
}

TEST_F(SeenOverlay, CutsTheCardsAtTheEdgesOfTheirArea) {
    overlay.Send(kMsgStarted);
    for (int i = 0; i < 40; ++i) {
        overlay.Result("MMMMMMMM", "MMMMMMMM");
    }
    for (int notch = 0; notch < 6; ++notch) {
        overlay.Send(WM_MOUSEWHEEL, MAKEWPARAM(0, 21));
        const Look look = Picture();
        const RECT area = overlay.CaptionArea();
        const int right = S(kOverlayWidth) - S(10) - S(4) - 5;
        EXPECT_EQ(look.In({S(10), S(kHeaderHeight) + 2, right, area.top}, kDark, 4).count, 0);
        EXPECT_EQ(
            look.In({S(10), area.bottom, right, S(kSmallestOverlayHeight) - 1}, kDark, 4).count, 0);
        EXPECT_GT(look.In({S(10), area.top, right, area.top + S(45)}, kDark, 40).count, 0);
        EXPECT_GT(look.In({S(10), area.bottom - S(45), right, area.bottom}, kDark, 40).count, 0);
    }
}

TEST_F(SeenOverlay, ShowsByTheScrollBarWhereItIs) {
    overlay.Send(kMsgStarted);
    const int x = S(kOverlayWidth) - S(4) - 4 + S(2);
    const auto bar = [&](int y) { return Picture().At(x, y); };
    overlay.Result("one", "card");
    EXPECT_TRUE(Near(bar(S(200)), kDark)) << "all is in view";
    for (int i = 0; i < 30; ++i) {
        overlay.Result("said", "meant");
    }
    const std::uint32_t track = Blend(kDark, 0x12FFFFFF);
    const std::uint32_t thumb = Blend(track, 0x5AFFFFFF);
    const RECT area = overlay.CaptionArea();
    EXPECT_TRUE(Near(bar(area.top + S(10)), track));
    EXPECT_TRUE(Near(bar(area.bottom - 4 - S(5)), thumb));
    EXPECT_TRUE(Near(bar(area.bottom - 1), kDark));
    EXPECT_TRUE(Near(Picture().At(x - S(3), area.bottom - S(9)), kDark));
    EXPECT_TRUE(Near(Picture().At(x + S(3), area.bottom - S(9)), kDark));
    const Ink ink = Picture().In({x, area.top, x + 1, area.bottom}, track, 40);
    const float share = static_cast<float>(area.bottom - area.top) / overlay.ContentHeight();
    EXPECT_NEAR(ink.Height(), share * static_cast<float>(area.bottom - area.top - 8), S(2));
    overlay.Press(x, ink.box.bottom - S(4));
    overlay.Move(x, ink.box.bottom - S(4) - ink.Height() / 2, true);
    const Ink dragged = Picture().In({x, area.top, x + 1, area.bottom}, track, 40);
    EXPECT_NEAR(ink.box.top - dragged.box.top, ink.Height() / 2, S(2)) << "it follows the pointer";
    EXPECT_TRUE(Near(dragged.strongest, Blend(track, 0xA0FFFFFF)));
    overlay.Release(x, 0);
    EXPECT_TRUE(Near(Picture().In({x, area.top, x + 1, area.bottom}, track, 40).strongest, thumb));
}

TEST_F(SeenOverlay, NamesTheButtonUnderThePointerInATooltip) {
    std::map<std::string, int> shapes;
    for (const int id : {kSettingsButton, kMicrophoneButton, kHideButton}) {
        const RECT r = Rect(id);
        overlay.Move(r.left + S(3), r.top + S(3));
        const Look look(overlay.Tooltip());
        RECT tip;
        GetWindowRect(overlay.Tooltip(), &tip);
        ASSERT_EQ(look.Width(), tip.right - tip.left);
        ASSERT_EQ(look.Height(), tip.bottom - tip.top);
        EXPECT_EQ(look.Alpha(look.Width() / 2, 3), 255);
        EXPECT_EQ(look.Alpha(0, 0) < 255, true) << "round";
        EXPECT_TRUE(Near(look.At(5, look.Height() / 2), 0x1E1E2E));
        EXPECT_GT(Distance(look.At(look.Width() / 2, 0), 0x1E1E2E), 20) << "outline";
        const Ink text = look.In({3, 3, look.Width() - 3, look.Height() - 3}, 0x1E1E2E, 40);
        EXPECT_TRUE(Near(text.strongest, 0xE1E1E1, 24));
        EXPECT_TRUE(Scaled(text.Height(), 11, 0.35F));
        EXPECT_NEAR(text.box.left, look.Width() - text.box.right, S(3));
        EXPECT_NEAR(text.box.left, 8 + S(2), S(3)) << "its margin";
        EXPECT_TRUE(shapes.emplace(text.shape, id).second);
    }
}

TEST_F(SeenOverlay, TakesTheSizesOfAScreenThatItIsMovedTo) {
    overlay.Command(kSettingsButton);
    RECT before = overlay.Bounds();
    const int there = 288 - ScreenDpi();
    SetWindowPos(overlay.Window(), nullptr, 4000, 400, 0, 0, SWP_NOSIZE | SWP_NOZORDER);
    ASSERT_TRUE(overlay.PumpUntil([&] { return DpiScale == there; }));
    const RECT after = overlay.Bounds();
    EXPECT_EQ((after.right - after.left) * ScreenDpi(), (before.right - before.left) * there);
    EXPECT_EQ((after.bottom - after.top) * ScreenDpi(), (before.bottom - before.top) * there);
    const Look look = Picture();
    EXPECT_EQ(look.Width(), S(kOverlayWidth));
    EXPECT_EQ(overlay.Button(kHideButton).right, Toolbar().HitRect(Toolbar().buttons.front()).right)
        << "painted anew";
    EXPECT_GT(Distance(look.At(S(200), S(40)), kDark), 8) << "the line below the header";
    // Dragging the lower edge begins with the height that it has now, or must have here.
    const int most = std::max<int>(S(kSmallestOverlayHeight), before.bottom - before.top);
    overlay.Press(S(100), look.Height() - 2);
    overlay.Move(S(100), look.Height() + 28, true);
    EXPECT_EQ(overlay.Bounds().bottom - overlay.Bounds().top, most + 30);
}

TEST_F(SeenOverlay, DoesWhatAButtonSaysOnlyWhenItIsReleasedOnIt) {
    overlay.Result("said", "meant");
    const ToolbarRect clear = overlay.Button(kClearButton);
    const auto release = [&](int x, int y) {
        const RECT window = overlay.Bounds();
        QCursor::setPos(window.left + x, window.top + y);
        overlay.Release(x, y);
    };
    overlay.Press(clear.left + 3, clear.top + 3);
    EXPECT_EQ(GetCapture(), overlay.Window());
    release(clear.left + 3, clear.top + 60);
    EXPECT_EQ(overlay.Captions().size(), 1u) << "regretted";
    EXPECT_EQ(GetCapture(), nullptr);
    overlay.Press(clear.left + 3, clear.top + 3);
    overlay.Send(WM_CAPTURECHANGED);
    release(clear.left + 3, clear.top + 3);
    EXPECT_EQ(overlay.Captions().size(), 1u) << "taken away";
    overlay.Press(clear.left + 3, clear.top + 3);
    release(clear.left + 3, clear.top + 3);
    EXPECT_EQ(overlay.Captions().size(), 0u);
    EXPECT_EQ(overlay.Status(), "Cleared");
}

// ---- The settings ------------------------------------------------------------------------------

class SeenSettings : public Seen {
protected:
    SeenSettings() {
        devices.Add(TEXT("m1"), eCapture).name = TEXT("Headset");
        devices.Add(TEXT("s1"), eRender).name = TEXT("Speakers");
        probe = std::make_unique<PopupProbe>();
        probe->Popup().Show();
        probe->Pump();
    }
    Look Picture() {
        InvalidateRect(probe->Window(), nullptr, TRUE);
        UpdateWindow(probe->Window());
        probe->Pump();
        return Look(probe->Window());
    }

    ScriptedEndpoints devices;
    std::unique_ptr<PopupProbe> probe;
    const PopupLayout layout = LayOutPopup(DpiScale);
};

TEST_F(SeenSettings, SayWhatEachControlIsFor) {
    const Look look = Picture();
    ASSERT_EQ(look.Width(), layout.width);
    ASSERT_EQ(look.Height(), layout.height);
    struct Case {
        const char* what;
        ControlBox box;
        float width; // of its text at 96 DPI
        float height;
        std::uint32_t colour;
    };
    for (const Case& c : {Case{"Access Key", layout.keyLabel, 53, 9, 0xAAAACC},
                          Case{"Language A", layout.langALabel, 57, 9, 0xAAAACC},
                          Case{"Language B", layout.langBLabel, 57, 9, 0xAAAACC},
                          Case{"swap", layout.swapGlyph, 16, 16, 0xAAAACC},
                          Case{"microphone's icon", layout.micIcon, 8, 11, 0xAAAACC},
                          Case{"Microphone Device", layout.micLabel, 93, 9.5F, 0xAAAACC},
                          Case{"loudspeaker's icon", layout.loopbackIcon, 10, 10, 0xAAAACC},
                          Case{"System Audio Device", layout.loopbackLabel, 101, 9, 0xAAAACC}}) {
        const Ink ink = look.In(BoxOf(c.box), kPopup, 40);
        EXPECT_TRUE(Scaled(ink.Width(), c.width, 0.25F)) << c.what;
        EXPECT_TRUE(Scaled(ink.Height(), c.height, 0.35F)) << c.what;
        EXPECT_TRUE(Near(ink.strongest, c.colour, 50)) << c.what;
    }
    const auto shape = [&](const ControlBox& box) { return look.In(BoxOf(box), kPopup, 40).shape; };
    EXPECT_NE(shape(layout.langALabel), shape(layout.langBLabel));
    EXPECT_NE(shape(layout.micIcon), shape(layout.loopbackIcon));
    const Ink title = look.In({S(16), S(8), S(300), S(38)}, Blend(kPopup, 0x0BFFFFFF), 90);
    EXPECT_GT(title.Width(), S(40));
    EXPECT_TRUE(Scaled(title.Height(), 12, 0.35F));
}

TEST_F(SeenSettings, ShowTheChoicesAndTheButtons) {
    const Look look = Picture();
    std::map<std::string, int> shapes;
    for (const ControlBox& list :
         {layout.langAList, layout.langBList, layout.micList, layout.loopbackList}) {
        RECT face = BoxOf(list);
        const std::uint32_t ground = look.At(list.x + S(4), list.y + S(4));
        EXPECT_GT(Distance(ground, kPopup), 8) << "a face of its own";
        const Ink arrow =
            look.In({face.right - S(20), face.top + S(4), face.right - S(3), face.bottom - S(4)},
                    ground, 40);
        EXPECT_GT(arrow.count, S(4));
        const Ink text =
            look.In({face.left + S(4), face.top + S(4), face.right - S(30), face.bottom - S(4)},
                    ground, 60);
        EXPECT_GT(text.Width(), S(30));
        EXPECT_TRUE(Scaled(text.Height(), 11, 0.4F));
        EXPECT_TRUE(shapes.emplace(text.shape, list.x).second);
        EXPECT_NEAR(text.box.top + text.box.bottom, face.top + face.bottom, S(6));
    }
    for (const ControlBox& refresh : {layout.refreshMic, layout.refreshLoopback}) {
        const Ink icon = look.In(BoxOf(refresh), kPopup, 60);
        EXPECT_TRUE(Scaled(icon.Height(), 11, 0.4F));
        EXPECT_NEAR(icon.box.left + icon.box.right, 2 * refresh.x + refresh.w, S(4));
    }
    const auto start = [&] {
        const Look now = Picture();
        RECT face = BoxOf(layout.start);
        return now.In({face.left + S(40), face.top + S(6), face.right - S(40), face.bottom - S(6)},
                      now.At(layout.start.x + S(20), layout.start.y + layout.start.h / 2), 70);
    };
    const Ink idle = start();
    EXPECT_GT(Distance(idle.strongest, 0), 0xE0) << "white on green";
    EXPECT_GT(idle.Width(), S(100));
    EXPECT_NEAR(idle.box.left + idle.box.right, 2 * layout.start.x + layout.start.w, S(8));
    probe->Popup().SetRunning(true);
    EXPECT_NE(start().shape, idle.shape);
}

TEST_F(SeenSettings, NeverLetTheKeyBeRead) {
    const auto field = [&](const std::string& key) {
        probe->SetKey(key);
        probe->StopTimers();
        return Picture().In(BoxOf(layout.keyEdit), 0x1E1E32, 40);
    };
    EXPECT_EQ(field("").count, 0);
    const Ink narrow = field("iiiiiiii");
    EXPECT_GT(narrow.count, S(20));
    EXPECT_GT(Distance(narrow.strongest, 0x1E1E32), 120);
    EXPECT_EQ(narrow.shape, field("WWWWWWWW").shape);
    EXPECT_LT(narrow.Width(), field("WWWWWWWWWWWW").Width()) << "but that it grows";
    probe->SetKey("");
}

TEST_F(SeenSettings, SayHowTheKeyIs) {
    const int top = layout.statusRowY + S(4);
    const int right = S(kPopupWidth - kPopupMargin);
    probe->SetKey("secret-key-0123456789");
    probe->StopTimers();
    std::map<std::string, int> shapes;
    for (const KeyStatus status : {KeyStatusChecking, KeyStatusValid, KeyStatusInvalid,
                                   KeyStatusQuotaExhausted, KeyStatusUnavailable}) {
        probe->SetState({status, 45, 15, 60, false});
        probe->StopTimers();
        const Look look = Picture();
        const Ink words =
            look.In({S(200), top + 1, right + 2, layout.statusRowY + S(27)}, kPopup, 40);
        EXPECT_GT(words.count, S(30)) << status;
        EXPECT_NEAR(words.box.right, right, S(3)) << "at the right";
        EXPECT_TRUE(shapes.emplace(words.shape, status).second) << status;
        const Ink key = look.In({S(16), top + 1, S(190), layout.statusRowY + S(27)}, kPopup, 40);
        EXPECT_GT(key.count, S(20)) << status;
        EXPECT_LT(key.Width(), S(110)) << "the key is shortened";
        EXPECT_NEAR(key.box.left, S(16), S(4));
    }
    probe->SetKey("");
    EXPECT_EQ(Picture().In({S(16), top + 1, right, layout.statusRowY + S(27)}, kPopup, 24).count,
              0);
}

} // namespace

// Once for each DPI, in a process of its own: the screens are the application's for good.
int main(int argc, char** argv) {
    const bool lists = std::any_of(argv, argv + argc, [](const char* argument) {
        return std::string(argument) == "--gtest_list_tests";
    });
    if (lists || std::getenv("KELVARIN_SCREEN_DPI") != nullptr) {
        testing::InitGoogleTest(&argc, argv);
        return RUN_ALL_TESTS();
    }
    int result = 0;
    for (const char* dpi : {"96", "192"}) {
        setenv("KELVARIN_SCREEN_DPI", dpi, 1);
        pid_t child = 0;
        int status = 1;
        if (posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, argv, environ) != 0 ||
            waitpid(child, &status, 0) != child || status != 0) {
            result = 1;
        }
    }
    return result;
}

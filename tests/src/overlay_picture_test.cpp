#include "dpi.h"
#include "overlay_probe.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>

namespace {

class Picture : public testing::Test {
protected:
    Picture() { overlay.Command(kClearButton); }
    ~Picture() override { DpiScale = 96; }

    void Say(int count, const std::string& text = "something that was said") {
        for (int i = 0; i < count; ++i) {
            overlay.Result(text, "its translation");
        }
    }
    float HeightOfOne(const std::string& original, const std::string& translated) {
        overlay.Command(kClearButton);
        overlay.Result(original, translated);
        overlay.Paint();
        return overlay.ContentHeight();
    }

    OverlayProbe overlay;
};

// ---- Layout ------------------------------------------------------------------------------------

TEST(ToolbarLayout, StandsWhereItShouldAtTheDesignSizeAndScaled) {
    for (const int dpi : {96, 144, 192}) {
        DpiScale = dpi;
        const float scale = static_cast<float>(dpi) / 96.0F;
        const ToolbarLayout layout = LayOutToolbar(S(380), S(40), false);
        EXPECT_NEAR(layout.buttonSize, 20.8F * scale, 0.01F);
        EXPECT_NEAR(layout.buttonTop, 9.6F * scale, 0.01F);
        EXPECT_NEAR(layout.titleWidth, 163.6F * scale, 0.01F);
        ASSERT_EQ(layout.buttons.size(), 7u);
        EXPECT_NEAR(layout.buttons.front().x, (380.0F - 6.4F - 20.8F) * scale, 0.01F);
        const auto leftmost = layout.buttons.back();
        EXPECT_EQ(leftmost.id, kSettingsButton);
        const ToolbarRect hit = layout.HitRect(leftmost);
        EXPECT_EQ(HitTestButtons({hit}, hit.left, hit.top), kSettingsButton);
        EXPECT_EQ(HitTestButtons({hit}, hit.right, hit.top), kNoButton);
        EXPECT_EQ(HitTestButtons({hit}, hit.left, hit.bottom), kNoButton);
    }
    DpiScale = 96;
}

TEST_F(Picture, GivesACardTheRoomOfItsTexts) {
    const float original = HeightOfOne("one line", "") - 14;
    const float both = HeightOfOne("one line", "its translation");
    const float translated = HeightOfOne("", "its translation") - 14;
    EXPECT_GT(original, 12);
    EXPECT_GT(translated, original) << "translations are larger";
    EXPECT_FLOAT_EQ(both, original + 4 + translated + 14);
    overlay.Result("one line", "its translation");
    overlay.Paint();
    // The first of the two has no original, and the gap is between the cards only.
    EXPECT_FLOAT_EQ(overlay.ContentHeight(), translated + 14 + 6 + both);
    overlay.Command(kTranslationButton);
    EXPECT_FLOAT_EQ(overlay.ContentHeight(), 14 + 6 + original + 14);
    EXPECT_GT(HeightOfOne(std::string(300, 'w'), "") - 14, 3 * original) << "a long word wraps";
}

TEST_F(Picture, LeavesEntriesWithoutTextsOutOfTheList) {
    const float one = HeightOfOne("word", "");
    overlay.Result("", "");
    overlay.Result("word", "");
    overlay.Paint();
    EXPECT_FLOAT_EQ(overlay.ContentHeight(), 2 * one + 6);
}

TEST_F(Picture, PutsTheCaptionsBelowTheStatusLine) {
    overlay.Paint();
    const LONG withStatus = overlay.CaptionArea().top;
    EXPECT_GT(withStatus, 40 + 2 + 14) << "\"Cleared\" stands there";
    overlay.Send(kMsgStarted);
    overlay.Paint();
    EXPECT_EQ(overlay.CaptionArea().top, 44);
    EXPECT_EQ(overlay.CaptionArea().bottom, 420 - 6 - 4);
}

TEST_F(Picture, FollowsTheNewestCaptionUntilTheUserScrollsUp) {
    Say(30);
    EXPECT_GT(overlay.MaxScroll(), 0);
    EXPECT_EQ(overlay.Scroll(), overlay.MaxScroll());
    const RECT area = overlay.CaptionArea();
    const RECT track = overlay.Track();
    EXPECT_EQ(overlay.Thumb().left, 380 - 4 - 4 - 4);
    EXPECT_EQ(track.top, area.top + 4);
    EXPECT_EQ(track.bottom, area.bottom - 4);
    EXPECT_NEAR(overlay.Thumb().bottom, track.bottom, 1);

    overlay.Send(WM_MOUSEWHEEL, MAKEWPARAM(0, 120));
    EXPECT_EQ(overlay.Scroll(), overlay.MaxScroll() - 40);
    const int scroll = overlay.Scroll();
    const LONG thumb = overlay.Thumb().top;
    Say(3);
    EXPECT_EQ(overlay.Scroll(), scroll) << "the view stays where the user left it";
    EXPECT_LT(overlay.Thumb().top, thumb);
    overlay.Send(WM_MOUSEWHEEL, MAKEWPARAM(0, static_cast<WORD>(-1200)));
    EXPECT_FALSE(overlay.ScrolledUp());
    Say(1);
    EXPECT_EQ(overlay.Scroll(), overlay.MaxScroll());
    overlay.Command(kClearButton);
    EXPECT_EQ(overlay.Scroll(), 0);
}

// ---- Colours -----------------------------------------------------------------------------------

std::uint32_t Opaque(std::uint32_t rgb) {
    return 0xFF000000 | rgb;
}

// Farther apart than rounding.
bool Differ(std::uint32_t a, std::uint32_t b) {
    for (int shift = 0; shift < 24; shift += 8) {
        const int difference =
            static_cast<int>(a >> shift & 0xFF) - static_cast<int>(b >> shift & 0xFF);
        if (std::abs(difference) > 2) {
            return true;
        }
    }
    return false;
}

TEST_F(Picture, HasTheColoursOfItsStates) {
    overlay.Send(kMsgStarted); // no status line
    EXPECT_FALSE(Differ(overlay.PixelAt(2, 200), Opaque(0x0E0E16))) << "background";
    EXPECT_TRUE(Differ(overlay.PixelAt(2, 0), overlay.PixelAt(2, 38))) << "header's gradient";
    // The dot is lit, and has its halo over it.
    EXPECT_FALSE(Differ(overlay.PixelAt(14, 20), Opaque(0x3DDC84)));
    overlay.Send(kMsgStopped);
    EXPECT_TRUE(Differ(overlay.PixelAt(14, 20), Opaque(0x3DDC84)));

    // A corner of a button's fill, clear of its glyph.
    const auto fill = [this](int id) {
        const ToolbarRect button = overlay.Button(id);
        return overlay.PixelAt(button.left + 4, button.top + 3);
    };
    const std::uint32_t lit = fill(kMicrophoneButton);
    EXPECT_TRUE(Differ(lit, fill(kLoopbackButton))) << "an active button is lit";
    std::set<std::uint32_t> states = {lit, fill(kLoopbackButton)};
    for (const int id : {kMicrophoneButton, kLoopbackButton}) {
        const ToolbarRect button = overlay.Button(id);
        overlay.Move(button.left + 5, button.top + 5);
        states.insert(fill(id));
        overlay.Press(button.left + 5, button.top + 5);
        states.insert(fill(id));
        overlay.Send(WM_MOUSELEAVE);
    }
    EXPECT_EQ(states.size(), 6u) << "active, hovered and pressed in all combinations";
}

TEST_F(Picture, DistinguishesPendingFromFinalCards) {
    overlay.Send(kMsgStarted);
    overlay.Result("said", "meant", false);
    const int middle = overlay.CaptionArea().top + static_cast<int>(overlay.ContentHeight()) / 2;
    EXPECT_FALSE(Differ(overlay.PixelAt(11, middle), overlay.PixelAt(16, middle)));
    const std::uint32_t pendingCard = overlay.PixelAt(300, middle);
    overlay.Result("said", "meant", true);
    EXPECT_TRUE(Differ(overlay.PixelAt(11, middle), overlay.PixelAt(16, middle))) << "accent bar";
    EXPECT_TRUE(Differ(overlay.PixelAt(300, middle), pendingCard));
}

TEST_F(Picture, ShowsAFailureInTheErrorColour) {
    const auto reddest = [this] {
        int most = 0;
        for (const std::uint32_t pixel : overlay.Paint()) {
            most = std::max(most, static_cast<int>(pixel >> 16 & 0xFF) -
                                      static_cast<int>(pixel >> 8 & 0xFF));
        }
        return most;
    };
    EXPECT_LT(reddest(), 80);
    overlay.Error("server_error_500");
    EXPECT_GT(reddest(), 80);
}

TEST_F(Picture, OfAnyTextIsPaintedWithoutHarm) {
    std::string control;
    for (char c = 1; c < 32; ++c) {
        control += c;
    }
    const std::string texts[] = {std::string(1 << 20, 'x'),
                                 control,
                                 "line\r\nbreak\nand\ttab",
                                 "עברית العربية ภาษาไทย हिन्दी 漢字かな 한국어 "
                                 "👩‍👩‍👧‍👦🇪🇸",
                                 "\xED\xA0\x80 lone \xED\xB0\x80",
                                 std::string(2000, ' ')};
    for (const std::string& text : texts) {
        EXPECT_GE(HeightOfOne(text, text), 14) << text.substr(0, 40);
    }
    WideString lone = TEXT("a");
    lone += WCHAR{0xD800};
    lone += TEXT("b");
    lone += WCHAR{0xDC00};
    TranslationResult result;
    result.original = lone;
    result.translated = lone;
    PostResult(overlay.Window(), result);
    overlay.Pump();
    EXPECT_EQ(overlay.Captions().back().original, lone);
}

} // namespace

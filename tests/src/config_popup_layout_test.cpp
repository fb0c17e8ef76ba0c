#include "config_popup_layout.h"

#include <gtest/gtest.h>

#include <ostream>

bool operator==(const ControlBox& a, const ControlBox& b) {
    return a.x == b.x && a.y == b.y && a.w == b.w && a.h == b.h;
}
void PrintTo(const ControlBox& box, std::ostream* out) {
    *out << box.x << ',' << box.y << ' ' << box.w << 'x' << box.h;
}

namespace {

TEST(PopupLayout, IsTheDesignsOwnAt96Dpi) {
    const PopupLayout layout = LayOutPopup(96);
    EXPECT_EQ(layout.width, 390);
    EXPECT_EQ(layout.height, 381);
    EXPECT_EQ(layout.keyLabel, (ControlBox{16, 58, 358, 15}));
    EXPECT_EQ(layout.keyEdit, (ControlBox{24, 81, 342, 20}));
    EXPECT_EQ(layout.langALabel, (ControlBox{16, 146, 161, 15}));
    EXPECT_EQ(layout.langBLabel, (ControlBox{213, 146, 161, 15}));
    EXPECT_EQ(layout.langAList, (ControlBox{16, 165, 161, 28}));
    EXPECT_EQ(layout.langBList, (ControlBox{213, 165, 161, 28}));
    EXPECT_EQ(layout.swapGlyph, (ControlBox{181, 165, 28, 28}));
    EXPECT_EQ(layout.micIcon, (ControlBox{16, 207, 18, 15}));
    EXPECT_EQ(layout.micLabel, (ControlBox{38, 207, 336, 15}));
    EXPECT_EQ(layout.micList, (ControlBox{16, 226, 324, 28}));
    EXPECT_EQ(layout.refreshMic, (ControlBox{344, 226, 30, 28}));
    EXPECT_EQ(layout.loopbackIcon, (ControlBox{16, 268, 18, 15}));
    EXPECT_EQ(layout.loopbackLabel, (ControlBox{38, 268, 336, 15}));
    EXPECT_EQ(layout.loopbackList, (ControlBox{16, 287, 324, 28}));
    EXPECT_EQ(layout.refreshLoopback, (ControlBox{344, 287, 30, 28}));
    EXPECT_EQ(layout.start, (ControlBox{16, 329, 358, 34}));
}

TEST(PopupLayout, ScalesEachLengthByItself) {
    // At 120 DPI 14, 15, 18 and 27 are not whole: 17.5 -> 18, 18.75 -> 19, 22.5 -> 23, 33.75 -> 34.
    const PopupLayout at120 = LayOutPopup(120);
    EXPECT_EQ(at120.width, 488);
    EXPECT_EQ(at120.keyLabel, (ControlBox{20, 73, 448, 19}));
    EXPECT_EQ(at120.keyEdit, (ControlBox{28, 102, 432, 25}));
    EXPECT_EQ(at120.statusRowY, 137);
    EXPECT_EQ(at120.micLabel, (ControlBox{48, 261, 420, 19}));
    EXPECT_EQ(at120.start, (ControlBox{20, 415, 448, 43}));
    EXPECT_EQ(at120.height, 481);
    const PopupLayout at144 = LayOutPopup(144);
    EXPECT_EQ(at144.width, 585);
    EXPECT_EQ(at144.keyEdit, (ControlBox{32, 122, 521, 30}));
    EXPECT_EQ(at144.langBList, (ControlBox{319, 249, 241, 42}));
    const PopupLayout at192 = LayOutPopup(192);
    EXPECT_EQ(at192.width, 780);
    EXPECT_EQ(at192.height, 762);
    EXPECT_EQ(at192.keyEdit, (ControlBox{40, 162, 700, 40}));
    EXPECT_EQ(at192.start, (ControlBox{32, 658, 716, 68}));
}

TEST(PopupPlace, IsBesideTheOverlayAndNeverAboveTheWorkArea) {
    struct Case {
        const char* name;
        RECT overlay;
        RECT work;
        POINT corner;
    };
    const RECT screen{0, 0, 1920, 1040};
    const Case cases[] = {
        {"right of it, in the middle", {100, 300, 480, 720}, screen, {490, 319}},
        {"left where the right has no room", {1500, 300, 1880, 720}, screen, {1100, 319}},
        {"just enough room", {1140, 300, 1520, 720}, screen, {1530, 319}},
        {"one pixel too little", {1141, 300, 1521, 720}, screen, {741, 319}},
        {"off the left side", {10, 300, 1900, 720}, screen, {-390, 319}},
        {"at the bottom", {100, 900, 480, 1320}, screen, {490, 659}},
        {"above the screen", {100, -900, 480, -480}, screen, {490, 0}},
        {"a work area too low for it: the top wins",
         {100, 0, 480, 420},
         {0, 30, 1920, 330},
         {490, 30}},
        {"a screen left of the first", {-1800, 0, -1420, 420}, {-1920, 0, 0, 1080}, {-1410, 19}},
    };
    for (const Case& c : cases) {
        const POINT corner = PlacePopup(c.overlay, {390, 381}, c.work);
        EXPECT_EQ(corner.x, c.corner.x) << c.name;
        EXPECT_EQ(corner.y, c.corner.y) << c.name;
    }
}

} // namespace

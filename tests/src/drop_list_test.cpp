#include "drop_list_probe.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

class DropLists : public testing::Test {
protected:
    DropListProbe probe{30};
    DropList& list = probe.List();
};

TEST_F(DropLists, OpenByAClickOrAKeyAndCloseWithoutAChoice) {
    const auto press = [&] {
        probe.ToButton(WM_LBUTTONDOWN);
        probe.ToButton(WM_LBUTTONUP);
    };
    press();
    EXPECT_TRUE(probe.IsOpen());
    press();
    EXPECT_FALSE(probe.IsOpen());
    probe.ToButton(WM_LBUTTONUP);
    EXPECT_FALSE(probe.IsOpen()) << "the press was elsewhere";
    probe.ToButton(WM_LBUTTONDOWN);
    probe.ToButton(WM_MOUSELEAVE);
    probe.ToButton(WM_LBUTTONUP);
    EXPECT_FALSE(probe.IsOpen()) << "the pointer had left in between";
    for (const WPARAM key : {WPARAM{VK_RETURN}, WPARAM{VK_SPACE}, WPARAM{VK_DOWN}}) {
        probe.ToButton(WM_KEYDOWN, key);
        EXPECT_TRUE(probe.IsOpen()) << key;
        probe.ToButton(WM_KEYDOWN, VK_ESCAPE);
        EXPECT_FALSE(probe.IsOpen()) << key;
    }
    EXPECT_EQ(probe.Notified(), 0);
    list.Clear();
    press();
    EXPECT_FALSE(probe.IsOpen()) << "nothing to show";
}

TEST_F(DropLists, OpenBelowTheButtonWithThePointerCaptured) {
    list.selected_ = 20;
    probe.Open();
    RECT button{};
    RECT window{};
    GetWindowRect(list.Button(), &button);
    GetWindowRect(probe.ListWindow(), &window);
    EXPECT_EQ(window.left, button.left);
    EXPECT_EQ(window.top, button.bottom);
    EXPECT_EQ(window.right - window.left, 161);
    EXPECT_EQ(window.bottom - window.top, 194);
    EXPECT_EQ(GetCapture(), probe.ListWindow());
    EXPECT_EQ(probe.ScrollTop(), 13);
    EXPECT_EQ(probe.Hot(), 20);
}

TEST_F(DropLists, TellTheirOwnerOfEachChoiceOnceItIsMade) {
    list.selected_ = 3;
    for (const int entry : {1, 1}) {
        probe.Open();
        probe.ToList(WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(20, 24 * entry + 5));
        EXPECT_FALSE(probe.IsOpen());
        EXPECT_EQ(list.selected_, entry);
        EXPECT_EQ(probe.SelectedWhenNotified(), entry);
        EXPECT_FALSE(probe.OpenWhenNotified());
    }
    EXPECT_EQ(probe.Notified(), 2) << "also for the entry that was chosen already";
    probe.Open();
    probe.ToList(WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(20, 192));
    EXPECT_TRUE(probe.IsOpen()) << "below the last row";
    EXPECT_EQ(probe.Notified(), 2);
}

TEST_F(DropLists, HandAPressBesideThemToWhatWasPressed) {
    probe.Open();
    const POINT inNeighbour{7, 9};
    probe.ToList(WM_LBUTTONDOWN, MK_LBUTTON, probe.FromNeighbour(inNeighbour));
    EXPECT_FALSE(probe.IsOpen());
    probe.Pump();
    ASSERT_EQ(probe.NeighbourPresses().size(), 1u);
    EXPECT_EQ(probe.NeighbourPresses()[0].x, inNeighbour.x);
    EXPECT_EQ(probe.NeighbourPresses()[0].y, inNeighbour.y);
    EXPECT_EQ(probe.Notified(), 0);
}

TEST_F(DropLists, StayClosedWhenTheirOwnButtonIsPressedWhileTheyAreOpen) {
    probe.Open();
    probe.ToList(WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(20, static_cast<WORD>(-5)));
    probe.Pump();
    probe.ToButton(WM_LBUTTONUP);
    EXPECT_FALSE(probe.IsOpen());
}

TEST_F(DropLists, ScrollByWheelOneRowAtATimeWithinTheirEnds) {
    probe.Open();
    const auto turn = [&](int delta) {
        probe.ToList(WM_MOUSEWHEEL, MAKEWPARAM(0, static_cast<WORD>(delta)));
    };
    turn(120);
    EXPECT_EQ(probe.ScrollTop(), 0);
    turn(-1);
    turn(-1200);
    EXPECT_EQ(probe.ScrollTop(), 2);
    for (int i = 0; i < 40; ++i) {
        turn(-120);
    }
    EXPECT_EQ(probe.ScrollTop(), 22);
}

TEST_F(DropLists, FollowTheKeysAndCommitWithReturn) {
    list.selected_ = -1;
    probe.Open();
    probe.ToList(WM_KEYDOWN, VK_RETURN);
    EXPECT_FALSE(probe.IsOpen());
    EXPECT_EQ(probe.Notified(), 0) << "no row was highlighted";
    probe.Open();
    probe.ToList(WM_KEYDOWN, VK_UP);
    EXPECT_EQ(probe.Hot(), -1);
    for (int i = 0; i < 10; ++i) {
        probe.ToList(WM_KEYDOWN, VK_DOWN);
    }
    EXPECT_EQ(probe.Hot(), 9);
    EXPECT_EQ(probe.ScrollTop(), 2);
    for (int i = 0; i < 9; ++i) {
        probe.ToList(WM_KEYDOWN, VK_UP);
    }
    EXPECT_EQ(probe.ScrollTop(), 0);
    probe.ToList(WM_KEYDOWN, VK_RETURN);
    EXPECT_EQ(list.selected_, 0);
    EXPECT_EQ(probe.Notified(), 1);
    list.selected_ = 29;
    probe.Open();
    probe.ToList(WM_KEYDOWN, VK_DOWN);
    EXPECT_EQ(probe.Hot(), 29);
    probe.ToList(WM_KEYDOWN, VK_ESCAPE);
    EXPECT_EQ(list.selected_, 29);
}

TEST_F(DropLists, DragTheirThumbAlsoOutsideTheListUntilTheRelease) {
    probe.Open();
    const auto at = [](int x, int y) {
        return MAKELPARAM(static_cast<WORD>(x), static_cast<WORD>(y));
    };
    probe.ToList(WM_LBUTTONDOWN, MK_LBUTTON, at(157, 100)); // below the thumb: a page
    EXPECT_EQ(probe.ScrollTop(), 8);
    probe.ToList(WM_LBUTTONDOWN, MK_LBUTTON, at(157, 4)); // above it
    EXPECT_EQ(probe.ScrollTop(), 0);
    probe.ToList(WM_LBUTTONDOWN, MK_LBUTTON, at(157, 10));
    probe.ToList(WM_MOUSEMOVE, MK_LBUTTON, at(-300, 1000));
    EXPECT_EQ(probe.ScrollTop(), 22);
    EXPECT_TRUE(probe.IsOpen());
    probe.ToList(WM_LBUTTONUP, 0, at(-300, 1000));
    probe.ToList(WM_MOUSEMOVE, 0, at(20, 5));
    EXPECT_EQ(probe.ScrollTop(), 22) << "the drag has ended";
    EXPECT_EQ(probe.Hot(), 22);
    probe.ToList(WM_MOUSEMOVE, 0, at(-1, 5));
    EXPECT_EQ(probe.Hot(), -1);
}

TEST_F(DropLists, DoNothingWhenDisabledAndCloseWhenTheyBecomeSo) {
    probe.Open();
    list.SetEnabled(false);
    EXPECT_FALSE(probe.IsOpen());
    EXPECT_EQ(GetCapture(), nullptr);
    probe.ToButton(WM_LBUTTONDOWN);
    probe.ToButton(WM_LBUTTONUP);
    probe.ToButton(WM_KEYDOWN, VK_SPACE);
    EXPECT_FALSE(probe.IsOpen());
    list.SetEnabled(true);
    probe.ToButton(WM_KEYDOWN, VK_SPACE);
    EXPECT_TRUE(probe.IsOpen());
    EXPECT_EQ(probe.Notified(), 0);
}

TEST_F(DropLists, TakeTheirOpenWindowAndTheCaptureWithThem) {
    probe.Open();
    HWND window = probe.ListWindow();
    HWND button = list.Button();
    probe.DestroyList();
    EXPECT_FALSE(IsWindow(window));
    EXPECT_FALSE(IsWindow(button));
    EXPECT_EQ(GetCapture(), nullptr);
}

// ---- Looks -------------------------------------------------------------------------------------

TEST_F(DropLists, ShowTheirStateOnTheFace) {
    const auto face = [&](int x, int y) { return probe.Face()->At(x, y); };
    const std::uint32_t plainEdge = face(80, 0);
    EXPECT_EQ(face(80, 3), 0x1E1E32u);
    EXPECT_PRED2(IsNear, face(150, 14), Blend(0x1E1E32, 0xA0AAAACC)) << "the arrow";
    probe.ToButton(WM_MOUSEMOVE);
    EXPECT_NE(face(80, 0), plainEdge) << "hovered";
    probe.ToButton(WM_LBUTTONDOWN);
    EXPECT_EQ(face(80, 3), 0x282840u) << "pressed";
    probe.ToButton(WM_LBUTTONUP);
    EXPECT_EQ(face(80, 3), 0x282840u) << "open";
    list.SetEnabled(false);
    probe.ToButton(WM_MOUSEMOVE);
    EXPECT_EQ(face(80, 3), 0x1E1E32u);
    EXPECT_EQ(face(80, 0), plainEdge);
    EXPECT_PRED2(IsNear, face(150, 14), Blend(0x1E1E32, 0x50888899));
}

TEST_F(DropLists, CutALongEntryBeforeTheSeparator) {
    const auto textPixels = [&](int from, int to) {
        const auto face = probe.Face();
        int count = 0;
        for (int x = from; x < to; ++x) {
            for (int y = 5; y < 23; ++y) {
                count += face->At(x, y) != 0x1E1E32u ? 1 : 0;
            }
        }
        return count;
    };
    list.selected_ = 99;
    EXPECT_EQ(textPixels(8, 136), 0) << "no such entry";
    list.items_[4] = WideString(400, WCHAR{'W'});
    list.selected_ = 4;
    EXPECT_GT(textPixels(8, 100), 100);
    EXPECT_EQ(textPixels(136, 138), 0);
}

TEST_F(DropLists, MarkTheSelectedAndTheHighlightedRow) {
    list.selected_ = 1;
    probe.Open();
    probe.ToList(WM_MOUSEMOVE, 0, MAKELPARAM(20, 2 * 24 + 3));
    const auto picture = probe.ListPicture();
    const std::uint32_t track = Blend(0x1E1E32, 0x1EFFFFFF);
    EXPECT_EQ(picture->At(150, 3), 0x1E1E32u);
    EXPECT_EQ(picture->At(1, 24 + 12), 0x3DDC84u);
    EXPECT_EQ(picture->At(1, 24 + 2), 0x1E1E32u) << "the marker is shorter than its row";
    EXPECT_EQ(picture->At(151, 2 * 24 + 12), 0x282840u);
    EXPECT_EQ(picture->At(153, 2 * 24 + 12), 0x1E1E32u) << "beside the scroll bar";
    EXPECT_PRED2(IsNear, picture->At(157, 30), Blend(track, 0x6EAAAACC)) << "the thumb";
    EXPECT_PRED2(IsNear, picture->At(157, 150), track);
    EXPECT_PRED2(IsNear, picture->At(80, 193), Blend(0x1E1E32, 0x32FFFFFF)) << "the outline";
}

} // namespace

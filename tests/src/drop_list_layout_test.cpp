#include "drop_list_layout.h"

#include <gtest/gtest.h>

namespace {

DropListLayout ListOf(int count, int dpi = 96) {
    DropListLayout layout{count, 161, 0, dpi};
    layout.height = layout.ListHeight();
    return layout;
}

TEST(DropListLayout, ShowsEightRowsAndAScrollBarFromTheNinthOn) {
    EXPECT_EQ(ListOf(3).ListHeight(), 74);
    EXPECT_EQ(ListOf(8).ListHeight(), 194);
    EXPECT_EQ(ListOf(9).ListHeight(), 194);
    EXPECT_EQ(ListOf(8).RowWidth(), 161);
    EXPECT_EQ(ListOf(9).RowWidth(), 153);
    EXPECT_EQ(ListOf(9, 144).ListHeight(), 8 * 36 + 2);
    EXPECT_EQ(ListOf(9, 144).RowWidth(), 161 - 11);
}

TEST(DropListLayout, OpensWithTheSelectedRowInView) {
    struct Case {
        int count;
        int selected;
        int top;
    };
    for (const Case& c : {Case{30, -1, 0},
                          {30, 7, 0},
                          {30, 8, 1},
                          {30, 20, 13},
                          {30, 29, 22},
                          {30, 99, 22},
                          {8, 7, 0},
                          {9, 8, 1}}) {
        EXPECT_EQ(ListOf(c.count).OpeningTop(c.selected), c.top) << c.count << ' ' << c.selected;
    }
}

TEST(DropListLayout, FindsTheEntryUnderThePointer) {
    struct Case {
        int x;
        int y;
        int entry;
    };
    const DropListLayout layout = ListOf(30);
    for (const Case& c : {Case{0, 0, 22},
                          {153, 23, 22},
                          {154, 23, -1},
                          {-1, 5, -1},
                          {5, -1, -1},
                          {5, 24, 23},
                          {5, 191, 29},
                          {5, 192, -1},
                          {5, 193, -1}}) {
        EXPECT_EQ(layout.HitTest(c.x, c.y, 22), c.entry) << c.x << ',' << c.y;
    }
    EXPECT_EQ(layout.HitTest(5, 191, 25), -1) << "behind the last entry";
}

TEST(DropListLayout, SizesTheThumbByWhatIsSeenButNeverTooSmall) {
    const DropListLayout::Thumb end = ListOf(30).ThumbAt(22);
    EXPECT_FLOAT_EQ(end.height, 8 * 190 / 30.0F);
    EXPECT_FLOAT_EQ(end.top + end.height, 192);
    EXPECT_FLOAT_EQ(ListOf(30).ThumbAt(0).top, 2);
    EXPECT_FLOAT_EQ(ListOf(1000).ThumbAt(0).height, 20);
    EXPECT_FLOAT_EQ(ListOf(1000, 192).ThumbAt(0).height, 40);
}

TEST(DropListLayout, FollowsTheThumbAsFarAsThereAreRows) {
    struct Case {
        int distance;
        int top;
    };
    for (const Case& c : {Case{0, 10}, {10, 12}, {-1, 10}, {-10, 9}, {1000, 22}, {-1000, 0}}) {
        EXPECT_EQ(ListOf(30).DraggedTop(10, 100, 100 + c.distance), c.top) << c.distance;
    }
}

} // namespace

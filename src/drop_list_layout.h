// The arithmetic of a drop-down list: which rows are seen, what a point hits, and where its scroll
// bar's thumb stands. Plain values in pixels; knows no window.
#pragma once

// An open list.
struct DropListLayout {
    int count = 0;  // entries
    int width = 0;  // of the client area
    int height = 0; // of the client area
    int dpi = 96;

    static constexpr int kMaxRows = 8; // seen at once

    struct Thumb {
        float top;
        float height;
        float track; // what it moves in
    };

    int Visible() const { return count < kMaxRows ? count : kMaxRows; }
    int MaxTop() const { return count - Visible(); }
    bool HasScrollBar() const { return count > kMaxRows; }
    int RowHeight() const;
    int BarWidth() const;
    // Of a row, without the scroll bar.
    int RowWidth() const;
    // Of the client area that holds the visible rows.
    int ListHeight() const;

    // The first visible row of a list that opens with `selected`, -1 for none.
    int OpeningTop(int selected) const;
    // The first visible row, moved as little as needed to bring row `hot` into view.
    int TopShowing(int hot, int scrollTop) const;
    int ClampTop(int scrollTop) const;
    // The entry at a point, -1 for none.
    int HitTest(int x, int y, int scrollTop) const;
    bool Contains(int x, int y) const;
    bool IsOnScrollBar(int x) const;

    Thumb ThumbAt(int scrollTop) const;
    // The first visible row after the thumb was dragged from `startY` to `y`.
    int DraggedTop(int startTop, int startY, int y) const;
};

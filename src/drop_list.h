// The program's own drop-down list: a button that shows the choice, and a borderless window with
// the entries while it is open. Knows its parent window only as the receiver of its notification.
#pragma once

#include "drop_list_layout.h"
#include "wide_text.h"

#include <windows.h>

#include <vector>

namespace Gdiplus {
class GpGraphics;
}

// UI thread only. Tells its parent of each choice by WM_COMMAND with CBN_SELCHANGE, the choice
// already made. Its owner puts the entries in and hands it the WM_DRAWITEM of the parent.
class DropList {
public:
    // In client coordinates of `parent`, pixels.
    DropList(HWND parent, int x, int y, int w, int h, int id);
    // Closes the list when it is open.
    ~DropList();
    DropList(const DropList&) = delete;
    DropList& operator=(const DropList&) = delete;

    // No entries and no selection any more. An open list stays open.
    void Clear();
    // Disabling closes the list without a choice.
    void SetEnabled(bool enabled);
    // `font` stays the caller's and outlives this.
    void SetFont(HFONT font);
    // Paints the closed control. False when the item is another window's.
    bool DrawItem(const DRAWITEMSTRUCT& item) const;

    HWND Button() const { return button_; }

private:
    friend class DropListProbe; // what the tests look at

    static LRESULT CALLBACK ButtonProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam,
                                            UINT_PTR id, DWORD_PTR list);
    static LRESULT CALLBACK ListProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    bool HandleButton(UINT message, WPARAM wParam);
    bool HandleButtonKey(WPARAM key);
    LRESULT HandleList(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    void OpenList();
    void CloseList();
    void Choose(int index);
    void ReleaseButton();
    void OnListPress(WPARAM keys, POINT point);
    void PassPressOn(WPARAM keys, POINT screenPoint) const;
    void PressScrollBar(int y);
    void OnListMove(POINT point);
    void OnListWheel(int delta);
    void OnListKey(WPARAM key);
    void SetHot(int index);
    void SetScrollTop(int scrollTop);
    int HitTest(POINT point) const;
    DropListLayout Layout() const;
    void InvalidateButton() const;
    void InvalidateList() const;

    void PaintList() const;
    void PaintEntries(HDC dc, Gdiplus::GpGraphics* graphics) const;
    void PaintRow(HDC dc, Gdiplus::GpGraphics* graphics, int row) const;
    void PaintScrollBar(Gdiplus::GpGraphics* graphics) const;
    void PaintFace(HDC dc, Gdiplus::GpGraphics* graphics, int width, int height) const;
    bool HasSelection() const;

    HWND parent_;
    HWND button_ = nullptr;
    HWND listWnd_ = nullptr; // null when closed
    HFONT font_ = nullptr;
    int id_;
    int x_;
    int y_;
    int w_;
    int h_;

public:
    std::vector<WideString> items_;
    int selected_ = -1; // -1: none

private:
    int hot_ = -1;      // highlighted in the open list; -1: none
    int scrollTop_ = 0; // first visible row
    bool enabled_ = true;
    bool open_ = false;
    bool hover_ = false;   // the pointer is over the button
    bool pressed_ = false; // the left button went down there and is still down
    bool draggingThumb_ = false;
    int dragStartY_ = 0;
    int dragStartTop_ = 0;
};

// What a selection stands for; null when it stands for nothing.
template <typename T>
const T* Chosen(const DropList& list, const std::vector<T>& records) {
    const int selected = list.selected_;
    return selected >= 0 && static_cast<std::size_t>(selected) < records.size()
               ? &records[static_cast<std::size_t>(selected)]
               : nullptr;
}

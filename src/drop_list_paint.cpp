// The drop-down list's looks: the closed control's face and the open list.
#include "dpi.h"
#include "drawing.h"
#include "drop_list.h"
#include "theme.h"

using namespace Gdiplus;
using namespace Gdiplus::DllExports;

namespace {

constexpr float kFaceRadius = 6.0F; // pixels
constexpr int kArrowZone = 22;      // at 96 DPI
constexpr int kTextPad = 10;        // of the selected row, at 96 DPI
constexpr int kFacePad = 8;         // at 96 DPI
constexpr int kUnselectedShift = 2; // pixels

constexpr ARGB kSeparator = 0x28FFFFFF;
constexpr ARGB kArrow = 0xA0AAAACC;
constexpr ARGB kArrowDisabled = 0x50888899;
constexpr ARGB kTrack = 0x1EFFFFFF;
constexpr ARGB kThumb = 0x6EAAAACC;
constexpr ARGB kThumbDragged = 0xC8A5C3FF;

constexpr COLORREF kText = theme::ForGdi(theme::kBrightText);
constexpr COLORREF kRowText = RGB(0xCC, 0xCC, 0xDD);
constexpr COLORREF kDisabledText = RGB(0x88, 0x88, 0x99);

// One line in the middle, cut with an ellipsis.
void DrawEntry(HDC dc, const WideString& text, RECT area, HFONT font, COLORREF colour) {
    const Selection selection(dc, font);
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, colour);
    DrawTextW(dc, text.c_str(), static_cast<int>(text.size()), &area,
              DT_SINGLELINE | DT_VCENTER | DT_NOPREFIX | DT_END_ELLIPSIS);
}

// Points down, or up for an open list.
void FillArrow(GpGraphics* graphics, ARGB colour, float centreX, float middle, bool up) {
    const float base = up ? middle + 1.2F : middle - 1.2F;
    const float tip = up ? middle - 1.8F : middle + 1.8F;
    const PointF corners[] = {{centreX - 4.5F, base}, {centreX + 4.5F, base}, {centreX, tip}};
    GdipFillPolygon(graphics, MakeBrush(colour).get(), corners, 3, FillModeAlternate);
}

} // namespace

// ---- The closed control -------------------------------------------------------------------------

bool DropList::DrawItem(const DRAWITEMSTRUCT& item) const {
    if (item.hwndItem != button_) {
        return false;
    }
    const int width = item.rcItem.right - item.rcItem.left;
    const int height = item.rcItem.bottom - item.rcItem.top;
    const OffscreenBitmap face(item.hDC, width, height);
    PaintFace(face.Context(), face.Graphics(), width, height);
    face.CopyTo(item.hDC, item.rcItem.left, item.rcItem.top);
    return true;
}

void DropList::PaintFace(HDC dc, GpGraphics* graphics, int width, int height) const {
    const auto w = static_cast<float>(width);
    const auto h = static_cast<float>(height);
    const bool raised = open_ || (enabled_ && pressed_);
    const bool accented = open_ || (enabled_ && hover_);
    const PathOwner shape = MakeRoundedRect({0, 0, w, h}, kFaceRadius);
    GdipFillPath(graphics, MakeBrush(raised ? theme::kRaised : theme::kField).get(), shape.get());
    GdipDrawPath(graphics, MakePen(accented ? theme::kAccentBorder : theme::kBorder, 1.0F).get(),
                 shape.get());

    const float separatorX = w - F(kArrowZone);
    GdipDrawLine(graphics, MakePen(kSeparator, 1.0F).get(), separatorX, 4.0F, separatorX, h - 4.0F);
    FillArrow(graphics, enabled_ ? kArrow : kArrowDisabled, separatorX + F(kArrowZone / 2),
              h / 2.0F, open_);
    if (HasSelection()) {
        const RECT area{S(kFacePad), 0, static_cast<LONG>(separatorX - 4.0F), height};
        DrawEntry(dc, items_[static_cast<std::size_t>(selected_)], area, font_,
                  enabled_ ? kText : kDisabledText);
    }
}

// ---- The open list ------------------------------------------------------------------------------

void DropList::PaintList() const {
    const PaintContext paint(listWnd_);
    const DropListLayout layout = Layout();
    const OffscreenBitmap picture(paint.get(), layout.width, layout.height);
    PaintEntries(picture.Context(), picture.Graphics());
    picture.CopyTo(paint.get(), 0, 0);
}

void DropList::PaintEntries(HDC dc, GpGraphics* graphics) const {
    const DropListLayout layout = Layout();
    GdipGraphicsClear(graphics, theme::kField);
    for (int row = 0; row < layout.Visible(); ++row) {
        PaintRow(dc, graphics, row);
    }
    if (layout.HasScrollBar()) {
        PaintScrollBar(graphics);
    }
    GdipDrawRectangle(graphics, MakePen(theme::kBorder, 1.0F).get(), 0, 0,
                      static_cast<float>(layout.width - 1), static_cast<float>(layout.height - 1));
}

void DropList::PaintRow(HDC dc, GpGraphics* graphics, int row) const {
    const DropListLayout layout = Layout();
    const int index = scrollTop_ + row;
    const int top = row * layout.RowHeight();
    const int bottom = top + layout.RowHeight();
    const bool hot = index == hot_;
    const bool selected = index == selected_;
    const auto y = static_cast<float>(top);
    const auto height = static_cast<float>(layout.RowHeight());
    if (hot) {
        GdipFillRectangle(graphics, MakeBrush(theme::kRaised).get(), 0, y,
                          static_cast<float>(layout.RowWidth()), height);
    }
    if (selected) {
        GdipFillRectangle(graphics, MakeBrush(theme::kGreen).get(), 0, y + 3.0F, 2.0F,
                          height - 6.0F);
    }
    const int left = S(kTextPad) - (selected ? 0 : kUnselectedShift);
    DrawEntry(dc, items_[static_cast<std::size_t>(index)],
              {left, top, layout.RowWidth() - 4, bottom}, font_,
              selected || hot ? kText : kRowText);
}

void DropList::PaintScrollBar(GpGraphics* graphics) const {
    const DropListLayout layout = Layout();
    const DropListLayout::Thumb thumb = layout.ThumbAt(scrollTop_);
    const auto barWidth = static_cast<float>(layout.BarWidth());
    const auto left = static_cast<float>(layout.width - layout.BarWidth());
    FillRounded(graphics, kTrack, {left - 1.0F, 2.0F, barWidth, thumb.track}, barWidth / 2.0F);
    FillRounded(graphics, draggingThumb_ ? kThumbDragged : kThumb,
                {left, thumb.top, barWidth - 2.0F, thumb.height}, (barWidth - 2.0F) / 2.0F);
}

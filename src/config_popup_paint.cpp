// The popup's looks: the card itself, the state of the key, and the buttons.
#include "config_popup.h"
#include "config_popup_controls.h"
#include "dpi.h"
#include "theme.h"

using namespace Gdiplus;
using namespace Gdiplus::DllExports;

namespace {

// ---- The card -----------------------------------------------------------------------------------

constexpr ARGB kHeaderLine = 0x19FFFFFF;
constexpr float kTitleWidth = 300.0F; // pixels
constexpr int kKeyCardRadius = 6;     // at 96 DPI

void PaintHeader(GpGraphics* graphics, int width) {
    const float height = F(kPopupTitleHeight);
    const float margin = F(kPopupMargin);
    GdipFillRectangle(graphics,
                      MakeVerticalGradient(height, theme::kHeaderTop, theme::kHeaderBottom).get(),
                      0, 0, static_cast<float>(width), height);
    const FormatOwner format = MakeTextFormat(StringAlignmentNear, StringAlignmentCenter);
    DrawTextIn(graphics, TEXT("Configuration"),
               MakeFont(theme::kTextFamily, 11.5F, FontStyleBold).get(), theme::kBrightText,
               {margin, 0, kTitleWidth, height}, format.get());
    GdipDrawLine(graphics, MakePen(kHeaderLine, 1.0F).get(), margin, height,
                 static_cast<float>(width - S(kPopupMargin)), height);
}

void PaintKeyCard(GpGraphics* graphics, const RectF& card, bool focused) {
    const PathOwner shape = MakeRoundedRect(card, static_cast<float>(S(kKeyCardRadius)));
    GdipFillPath(graphics, MakeBrush(theme::kField).get(), shape.get());
    const ARGB outline = focused ? theme::kAccentBorder : theme::kBorder;
    GdipDrawPath(graphics, MakePen(outline, 1.0F).get(), shape.get());
}

// ---- The state of the key -----------------------------------------------------------------------

constexpr int kTextHeight = 16;       // at 96 DPI
constexpr float kTextDistance = 5.0F; // pixels below the bar
constexpr ARGB kKeyText = 0x46AAAACC;
constexpr ARGB kValidFill = 0xBE3DDC84;
constexpr ARGB kExhaustedFill = 0xAAFF8800;
constexpr ARGB kBandColour = 0xBEA5C3FF;
constexpr ARGB kBandEdge = 0x00A5C3FF;

struct StatusColours {
    ARGB track;
    ARGB text;
};

constexpr StatusColours kStatusColours[] = {
    {0x23FFFFFF, 0},          // none
    {0x1CFFFFFF, 0x5AAAAACC}, // checking
    {0x1E3DDC84, 0xA03DDC84}, // valid
    {0x23FF4444, 0xBEFF4444}, // invalid
    {0x23FF8800, 0xBEFF8800}, // quota exhausted
    {0x23777777, 0x82999999}, // unavailable
};

void FillPill(GpGraphics* graphics, ARGB colour, const RectF& area) {
    FillRounded(graphics, colour, area, area.Height / 2.0F);
}

// ---- Buttons ------------------------------------------------------------------------------------

constexpr float kButtonRadius = 6.0F; // pixels
constexpr ARGB kRefreshOutline = 0x50FFFFFF;
constexpr ARGB kRefreshText = 0xC8CCCCCC;
constexpr ARGB kStartTextColour = 0xFFFFFFFF;
constexpr ARGB kDisabledText = 0x5AB4B4BE;
constexpr int kButtonTextRoom = 64; // characters with the terminator

struct ButtonState {
    bool disabled;
    bool pressed;
    bool hovered;
};

struct StartColours {
    ARGB top;
    ARGB bottom;
};

constexpr StartColours StartColoursOf(const ButtonState& state) {
    if (state.disabled) {
        return {0xFF3A3A4E, 0xFF303042};
    }
    if (state.pressed) {
        return {0xFF229950, 0xFF1A783E};
    }
    return state.hovered ? StartColours{0xFF3ED478, 0xFF2CB05C}
                         : StartColours{0xFF30BA65, 0xFF22964E};
}

void PaintStartFace(GpGraphics* graphics, const RectF& area, const ButtonState& state) {
    const StartColours colours = StartColoursOf(state);
    GdipFillPath(graphics, MakeVerticalGradient(area.Height, colours.top, colours.bottom).get(),
                 MakeRoundedRect(area, kButtonRadius).get());
}

void PaintRefreshFace(GpGraphics* graphics, const RectF& area, const ButtonState& state) {
    const bool raised = state.pressed || state.hovered;
    const PathOwner shape = MakeRoundedRect(area, kButtonRadius);
    GdipFillPath(graphics, MakeBrush(raised ? theme::kRaised : theme::kSurface).get(), shape.get());
    if (raised) {
        GdipDrawPath(graphics, MakePen(kRefreshOutline, 1.0F).get(), shape.get());
    }
}

} // namespace

struct ButtonLook {
    void (*paintFace)(GpGraphics* graphics, const RectF& area, const ButtonState& state);
    float inset; // of the face on each side, in pixels
    const WCHAR* family;
    float points;
    FontStyle style;
    ARGB text;
    ARGB hoveredText;
};
const ButtonLook kStartLook{PaintStartFace,  0.0F,          theme::kTextFamily,
                            10.5F,           FontStyleBold, kStartTextColour,
                            kStartTextColour};
const ButtonLook kRefreshLook{PaintRefreshFace, 0.5F,         theme::kIconFamily, 12.0F,
                              FontStyleRegular, kRefreshText, theme::kBrightText};

void ConfigPopup::PaintPopup() const {
    const PaintContext paint(hwnd_);
    RECT client{};
    GetClientRect(hwnd_, &client);
    const OffscreenBitmap picture(paint.get(), client.right, client.bottom);
    PaintCard(picture.Graphics(), client.right);
    picture.CopyTo(paint.get(), 0, 0);
}

void ConfigPopup::PaintCard(GpGraphics* graphics, int width) const {
    GdipGraphicsClear(graphics, theme::kSurface);
    PaintHeader(graphics, width);
    const auto left = static_cast<float>(S(kPopupMargin));
    const auto contentWidth = static_cast<float>(width - 2 * S(kPopupMargin));
    PaintKeyCard(
        graphics,
        {left, static_cast<float>(keyRowY_), contentWidth, static_cast<float>(S(kPopupRowHeight))},
        GetFocus() == keyEdit_);
    PaintStatusRow(graphics, left, static_cast<float>(statusRowY_), contentWidth);
}

void ConfigPopup::PaintStatusRow(GpGraphics* graphics, float x, float y, float width) const {
    const RectF bar(x, y, width, F(kKeyBarHeight));
    const StatusColours& colours = kStatusColours[keyStatus_];
    FillPill(graphics, colours.track, bar);
    PaintStatusFill(graphics, bar);
    if (keyStatus_ == KeyStatusNone) {
        return;
    }
    const RectF area(x, bar.Y + bar.Height + kTextDistance, width, F(kTextHeight));
    const FontOwner font = MakeFont(theme::kStatusFamily, 8.0F, FontStyleRegular);
    const FormatOwner right = MakeTextFormat(StringAlignmentFar, StringAlignmentNear);
    DrawTextIn(graphics, KeyStatusText(KeyState()), font.get(), colours.text, area, right.get());
    const FormatOwner left = MakeTextFormat(StringAlignmentNear, StringAlignmentNear);
    DrawTextIn(graphics, ShortenedKey(KeyText(kStoredKeyRoom)), font.get(), kKeyText, area,
               left.get());
}

void ConfigPopup::PaintStatusFill(GpGraphics* graphics, const RectF& bar) const {
    switch (keyStatus_) {
    case KeyStatusChecking:
        PaintCheckingBand(graphics, bar);
        break;
    case KeyStatusValid:
        if (const float share = UsedShare(KeyState()); share > 0) {
            FillPill(graphics, kValidFill, {bar.X, bar.Y, share * bar.Width, bar.Height});
        }
        break;
    case KeyStatusQuotaExhausted:
        FillPill(graphics, kExhaustedFill, bar);
        break;
    default:
        break;
    }
}

// Fades at both ends, and enters and leaves the bar gradually.
void ConfigPopup::PaintCheckingBand(GpGraphics* graphics, const RectF& bar) const {
    const CheckingBand band = CheckingBandAt(animPhase_, bar.X, bar.Width);
    const float width = band.right - band.left;
    if (!(width > 0)) {
        return;
    }
    const PointF begin{band.gradientLeft, bar.Y};
    const PointF end{band.gradientRight, bar.Y};
    GpLineGradient* gradient = nullptr;
    GdipCreateLineBrush(&begin, &end, kBandEdge, kBandEdge, WrapModeTile, &gradient);
    const BrushOwner brush(gradient);
    constexpr ARGB colours[] = {kBandEdge, kBandColour, kBandEdge};
    constexpr REAL positions[] = {0.0F, 0.5F, 1.0F};
    GdipSetLinePresetBlend(gradient, colours, positions, 3);
    GdipFillPath(graphics, brush.get(),
                 MakeRoundedRect({band.left, bar.Y, width, bar.Height}, bar.Height / 2.0F).get());
}

void ConfigPopup::PaintButton(const DRAWITEMSTRUCT& item) const {
    const int width = item.rcItem.right - item.rcItem.left;
    const int height = item.rcItem.bottom - item.rcItem.top;
    const int id = static_cast<int>(item.CtlID);
    const Control* control = FindControl(id);
    if (control == nullptr || control->look == nullptr) {
        return;
    }
    const ButtonLook& look = *control->look;
    const ButtonState state{(item.itemState & ODS_DISABLED) != 0,
                            (item.itemState & ODS_SELECTED) != 0, hoverId_ == id};
    const OffscreenBitmap face(item.hDC, width, height);
    RectF area(look.inset, look.inset, static_cast<float>(width) - 2.0F * look.inset,
               static_cast<float>(height) - 2.0F * look.inset);
    look.paintFace(face.Graphics(), area, state);

    WCHAR text[kButtonTextRoom] = {};
    const int length = GetWindowTextW(item.hwndItem, text, kButtonTextRoom);
    const FontOwner font = MakeFont(look.family, look.points, look.style);
    const ARGB hoverable = state.hovered ? look.hoveredText : look.text;
    const FormatOwner centred = MakeTextFormat(StringAlignmentCenter, StringAlignmentCenter);
    area.Y += 1.0F;
    DrawTextIn(face.Graphics(), {text, static_cast<std::size_t>(length)}, font.get(),
               state.disabled ? kDisabledText : hoverable, area, centred.get());
    face.CopyTo(item.hDC, item.rcItem.left, item.rcItem.top);
}

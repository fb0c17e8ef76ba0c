// Where everything of the settings popup stands, and where the popup itself stands beside the
// overlay. Arithmetic on rectangles in pixels; knows no window.
#pragma once

#include <windows.h>

struct ControlBox {
    int x;
    int y;
    int w;
    int h;
};

struct PopupLayout {
    int width;
    int height;
    int keyRowY;    // of the key's card
    int statusRowY; // of the painted status row
    ControlBox keyLabel;
    ControlBox keyEdit; // inside the card
    ControlBox langALabel;
    ControlBox langBLabel;
    ControlBox langAList;
    ControlBox langBList;
    ControlBox swapGlyph;
    ControlBox micIcon;
    ControlBox micLabel;
    ControlBox micList;
    ControlBox refreshMic;
    ControlBox loopbackIcon;
    ControlBox loopbackLabel;
    ControlBox loopbackList;
    ControlBox refreshLoopback;
    ControlBox start;
};

// Lengths common to the layout and the painting, at 96 DPI.
inline constexpr int kPopupWidth = 390;
inline constexpr int kPopupMargin = 16;
inline constexpr int kPopupTitleHeight = 44;
inline constexpr int kPopupRowHeight = 28;
inline constexpr int kStatusRowHeight = 27;
inline constexpr int kKeyBarHeight = 4; // at the top of that row

// In client coordinates; each length is scaled by itself.
PopupLayout LayOutPopup(int dpi);

// The popup's top left corner: right of the overlay, or left of it where the work area has no room,
// in the middle of the overlay's height, and inside the work area vertically, its top before its
// bottom.
POINT PlacePopup(const RECT& overlay, SIZE popup, const RECT& workArea);

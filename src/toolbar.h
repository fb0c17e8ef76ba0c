// The overlay's toolbar: which buttons there are and where they stand. Plain data and arithmetic;
// the table of the buttons, with what they do, is in overlay_toolbar.cpp.
#pragma once

#include <windows.h>

#include <vector>

// A button's number. 0 means no button.
enum ToolbarButton : int {
    kNoButton = 0,
    kSettingsButton = 1,
    kMicrophoneButton = 2,
    kLoopbackButton = 3,
    kStartButton = 4,
    kStopButton = 5,
    kClearButton = 6,
    kHideButton = 7,
    kTranslationButton = 8,
    kLastButton = kTranslationButton,
};

// One place of the toolbar: a button, or a separator.
struct ToolbarEntry {
    WCHAR glyph;     // in the icon font
    float glyphSize; // in points of a button 26 pixels wide
    int id;
    bool separator;
};

// Where a button can be hit, in client coordinates; right and bottom lie outside.
struct ToolbarRect {
    int left;
    int top;
    int right;
    int bottom;
    int id;
};

// From the right edge leftward. Start and stop share a place.
std::vector<ToolbarEntry> ToolbarEntries(bool running);

// What a button says of itself; null for none.
const WCHAR* ToolbarTooltip(int id);

// The toolbar laid out, all in pixels of the client area.
struct ToolbarLayout {
    struct Button {
        WCHAR glyph;
        float glyphSize; // as in ToolbarEntry
        int id;
        float x; // left edge
    };

    float buttonSize;
    float buttonTop;
    float titleLeft;
    float titleWidth; // 0 or less when there is no room for a title
    std::vector<Button> buttons;
    std::vector<float> separators; // x of each line

    ToolbarRect HitRect(const Button& button) const;
};

// In a header `headerHeight` pixels high over a client area `width` wide, at the current DPI.
ToolbarLayout LayOutToolbar(int width, int headerHeight, bool running);

// The first button whose rectangle holds the point, or kNoButton.
int HitTestButtons(const std::vector<ToolbarRect>& buttons, int x, int y);

// What the controls have in common: a font, and a parent that chooses colours and is told of what
// the user does.
#pragma once

#include "windowing/window.h"

namespace controls {

class Control : public windowing::WindowPart {
public:
    HFONT font = nullptr; // the program's
};

// The brush that the parent gives for the background, having chosen the context's colours;
// `message` is one of WM_CTLCOLOR...
HBRUSH AskForColours(const windowing::Window& control, UINT message, HDC context);
// Sends WM_COMMAND to the parent.
void Notify(const windowing::Window& control, WORD notification);

// WM_SETFONT and WM_GETFONT.
void SetFont(const windowing::Window& window, Control& control, WPARAM font, LPARAM redraw);

} // namespace controls

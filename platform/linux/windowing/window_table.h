// All windows there are, how they lie above each other, and how they stand in each other.
#pragma once

#include "windowing/window.h"

namespace windowing {

// From here on the window is found, and a top-level one lies above all others.
void Enter(const std::shared_ptr<Window>& window);
void Leave(const Window& window);

// Top-level windows, the lowest first.
std::vector<std::shared_ptr<Window>> TopLevels();
// Above all others, and the windows that it owns above it again, as they lay.
void RaiseInStack(HWND topLevel);
// As TopLevels has them.
std::vector<std::shared_ptr<Window>> OwnedBy(HWND owner);

Window& TopLevelOf(Window& window);
const Window& TopLevelOf(const Window& window);
Surface& SurfaceOf(const Window& window);
bool IsWithin(HWND window, HWND ancestor); // or is that one itself
// Shown by itself, and so is all that it stands in.
bool Shows(const Window& window);

// Where its client area begins: on the screen, and in that of its top-level window.
POINT OriginOnScreen(const Window& window);
POINT OriginInTopLevel(const Window& window);
RECT RectOnScreen(const Window& window);

} // namespace windowing

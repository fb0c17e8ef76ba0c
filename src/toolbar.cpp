#include "toolbar.h"

#include "dpi.h"

#include <algorithm>

ToolbarRect ToolbarLayout::HitRect(const Button& button) const {
    return {static_cast<int>(button.x), static_cast<int>(buttonTop),
            static_cast<int>(button.x + buttonSize), static_cast<int>(buttonTop + buttonSize),
            button.id};
}

ToolbarLayout LayOutToolbar(int width, int headerHeight, bool running) {
    const auto height = static_cast<float>(headerHeight);
    // A button of 26 pixels has a margin of 8 and a space of 2: every length is so many thirteenths
    // of the button, whatever its size is.
    const float b = std::min(static_cast<float>(S(26)) * 0.8F, height * 0.65F);
    const float margin = b * 4.0F / 13.0F;
    const std::vector<ToolbarEntry> entries = ToolbarEntries(running);

    float toolbarWidth = margin;
    for (const ToolbarEntry& entry : entries) {
        toolbarWidth += entry.separator ? b / 2.0F : b + b / 13.0F;
    }
    ToolbarLayout layout{b, (height - b) * 0.5F, F(22), 0.0F, {}, {}};
    layout.titleWidth = static_cast<float>(width) - layout.titleLeft - toolbarWidth;

    float x = static_cast<float>(width) - margin;
    for (const ToolbarEntry& entry : entries) {
        if (entry.separator) {
            x -= b * 0.5F * 6.0F / 13.0F;
            layout.separators.push_back(x);
            x -= b * 0.5F * 7.0F / 13.0F;
        } else {
            x -= b;
            layout.buttons.push_back({entry.glyph, entry.glyphSize, entry.id, x});
            x -= b / 13.0F;
        }
    }
    return layout;
}

int HitTestButtons(const std::vector<ToolbarRect>& buttons, int x, int y) {
    const auto hit = std::find_if(buttons.begin(), buttons.end(), [&](const ToolbarRect& button) {
        const RECT area{button.left, button.top, button.right, button.bottom};
        return PtInRect(&area, POINT{x, y}) != FALSE;
    });
    return hit != buttons.end() ? hit->id : kNoButton;
}

#include "toolbar.h"

#include "dpi.h"

#include <algorithm>
#include <array>

namespace {

constexpr ToolbarEntry kBarSeparator{0, kNoButton, true};

// By id.
constexpr std::array<const WCHAR*, 9> kTooltips = {
    nullptr,
    TEXT("Settings"),
    TEXT("Microphone"),
    TEXT("Speaker (loopback)"),
    TEXT("Start recognition"),
    TEXT("Stop recognition"),
    TEXT("Clear captions"),
    TEXT("Hide window"),
    TEXT("Toggle translation"),
};

} // namespace

std::vector<ToolbarEntry> ToolbarEntries(bool running) {
    return {
        {0xE106, kHideButton, false},
        {0xE107, kClearButton, false},
        kBarSeparator,
        running ? ToolbarEntry{0xE769, kStopButton, false}
                : ToolbarEntry{0xE768, kStartButton, false},
        kBarSeparator,
        {0xE767, kLoopbackButton, false},
        {0xE720, kMicrophoneButton, false},
        kBarSeparator,
        {0xE775, kTranslationButton, false},
        {0xE713, kSettingsButton, false},
    };
}

const WCHAR* ToolbarTooltip(int id) {
    return id > kNoButton && id < static_cast<int>(kTooltips.size())
               ? kTooltips[static_cast<std::size_t>(id)]
               : nullptr;
}

ToolbarRect ToolbarLayout::HitRect(const Button& button) const {
    return {static_cast<int>(button.x), static_cast<int>(buttonTop),
            static_cast<int>(button.x + buttonSize), static_cast<int>(buttonTop + buttonSize),
            button.id};
}

ToolbarLayout LayOutToolbar(int width, int headerHeight, bool running) {
    const auto height = static_cast<float>(headerHeight);
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
            layout.buttons.push_back({entry.glyph, entry.id, x});
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

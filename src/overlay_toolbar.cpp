// The toolbar's buttons. All there is to know of one stands in its row.
#include "overlay_window.h"
#include "stored_values.h"
#include "theme.h"

#include <array>

namespace {

enum class Shown {
    Always,
    Idle,    // while no run is up
    Running, // while one is
};

} // namespace

// A row that lacks something does not compile.
struct OverlayWindow::ToolbarRow {
    using Action = void (OverlayWindow::*)();
    using Light = bool OverlayWindow::*;

    constexpr ToolbarRow(ToolbarButton button, int groupNumber, Shown when, const WCHAR* glyph,
                         float size, const WCHAR* text, Action onPress, Light litBy)
        : id(button), group(groupNumber), shown(when), icon(glyph), iconSize(size), tooltip(text),
          press(onPress), lit(litBy) {}

    ToolbarButton id;
    int group; // a separator stands between two groups
    Shown shown;
    const WCHAR* icon;
    float iconSize; // in points of a button 26 pixels wide
    const WCHAR* tooltip;
    Action press;
    Light lit; // null: never
};

struct OverlayWindow::Toolbar {
    using Window = OverlayWindow;

    // From the right edge leftward.
    static constexpr std::array kRows = {
        ToolbarRow(kHideButton, 0, Shown::Always, theme::kHideIcon, 11.0F, TEXT("Hide window"),
                   &Window::HideOverlay, nullptr),
        ToolbarRow(kClearButton, 0, Shown::Always, theme::kClearIcon, 14.0F, TEXT("Clear captions"),
                   &Window::ClearCaptions, nullptr),
        ToolbarRow(kStartButton, 1, Shown::Idle, theme::kStartIcon, 14.0F,
                   TEXT("Start recognition"), &Window::StartTranslation, nullptr),
        ToolbarRow(kStopButton, 1, Shown::Running, theme::kStopIcon, 14.0F,
                   TEXT("Stop recognition"), &Window::StopTranslation, nullptr),
        ToolbarRow(kLoopbackButton, 2, Shown::Always, theme::kSpeakerIcon, 14.0F,
                   TEXT("Speaker (loopback)"), &Window::ToggleLoopback, &Window::useLoopback_),
        ToolbarRow(kMicrophoneButton, 2, Shown::Always, theme::kMicrophoneIcon, 14.0F,
                   TEXT("Microphone"), &Window::ToggleMicrophone, &Window::useMic_),
        ToolbarRow(kTranslationButton, 3, Shown::Always, theme::kTranslationIcon, 14.0F,
                   TEXT("Toggle translation"), &Window::ToggleTranslation,
                   &Window::showTranslation_),
        ToolbarRow(kSettingsButton, 3, Shown::Always, theme::kSettingsIcon, 14.0F, TEXT("Settings"),
                   &Window::ToggleSettings, nullptr),
    };

    // Null for no button.
    static constexpr const ToolbarRow* Find(int id) {
        for (const ToolbarRow& row : kRows) {
            if (row.id == id) {
                return &row;
            }
        }
        return nullptr;
    }

    // Without Find: with sanitizers, GCC takes a comparison with null for no constant.
    static constexpr bool EachButtonHasOneRow() {
        std::array<int, kLastButton + 1> rows{};
        for (const ToolbarRow& row : kRows) {
            ++rows[row.id];
        }
        for (int id = kNoButton + 1; id <= kLastButton; ++id) {
            if (rows[static_cast<std::size_t>(id)] != 1) {
                return false;
            }
        }
        return true;
    }
};

std::vector<ToolbarEntry> ToolbarEntries(bool running) {
    using Toolbar = OverlayWindow::Toolbar;
    static_assert(Toolbar::EachButtonHasOneRow());
    std::vector<ToolbarEntry> entries;
    int group = Toolbar::kRows.front().group;
    for (const auto& row : Toolbar::kRows) {
        if (row.shown == (running ? Shown::Idle : Shown::Running)) {
            continue;
        }
        if (row.group != group) {
            entries.push_back({0, 0, kNoButton, true});
            group = row.group;
        }
        entries.push_back({*row.icon, row.iconSize, row.id, false});
    }
    return entries;
}

const WCHAR* ToolbarTooltip(int id) {
    const auto* row = OverlayWindow::Toolbar::Find(id);
    return row != nullptr ? row->tooltip : nullptr;
}

bool OverlayWindow::IsLit(int id) const {
    const ToolbarRow* row = Toolbar::Find(id);
    return row != nullptr && row->lit != nullptr && this->*row->lit;
}

void OverlayWindow::OnToolbarCommand(int id) {
    if (const ToolbarRow* row = Toolbar::Find(id)) {
        (this->*row->press)();
    }
}

// ---- What the buttons do that nothing else does -------------------------------------------------

void OverlayWindow::ToggleSettings() {
    if (popup_->IsVisible()) {
        popup_->Hide();
    } else {
        popup_->Show();
    }
}

void OverlayWindow::ToggleMicrophone() {
    ToggleSource(useMic_, stored::kUseMic);
}

void OverlayWindow::ToggleLoopback() {
    ToggleSource(useLoopback_, stored::kUseLoopback);
}

void OverlayWindow::ToggleTranslation() {
    showTranslation_ = !showTranslation_;
    Repaint();
}

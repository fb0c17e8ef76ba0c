// Prints where everything stands that a pointer can press, at 96 DPI, for scripts that press by
// name: a line "NAME LEFT TOP WIDTH HEIGHT" for each, in pixels of its window's client area.
#include "config_popup_layout.h"
#include "drop_list_layout.h"
#include "overlay_window.h"
#include "toolbar.h"

#include <iostream>

namespace {

void Print(const char* name, const ControlBox& box) {
    std::cout << name << ' ' << box.x << ' ' << box.y << ' ' << box.w << ' ' << box.h << '\n';
}

// None of the buttons is left out: the compiler warns of a switch that lacks one.
const char* NameOf(ToolbarButton button) {
    switch (button) {
    case kNoButton:
        break;
    case kSettingsButton:
        return "overlay.settings";
    case kMicrophoneButton:
        return "overlay.microphone";
    case kLoopbackButton:
        return "overlay.loopback";
    case kStartButton:
        return "overlay.start";
    case kStopButton:
        return "overlay.stop";
    case kClearButton:
        return "overlay.clear";
    case kHideButton:
        return "overlay.hide";
    case kTranslationButton:
        return "overlay.translation";
    }
    return "overlay.none";
}

void PrintToolbar(bool running) {
    const ToolbarLayout layout = LayOutToolbar(kOverlayWidth, kHeaderHeight, running);
    for (const ToolbarLayout::Button& button : layout.buttons) {
        const ToolbarRect hit = layout.HitRect(button);
        Print(NameOf(static_cast<ToolbarButton>(button.id)),
              {hit.left, hit.top, hit.right - hit.left, hit.bottom - hit.top});
    }
}

// An open list hangs below its control. Its entries are printed as far as they are seen at once.
void PrintList(const std::string& name, const ControlBox& list) {
    Print(name.c_str(), list);
    const int rowHeight = DropListLayout().RowHeight();
    for (int row = 0; row < DropListLayout::kMaxRows; ++row) {
        Print((name + ".row" + std::to_string(row + 1)).c_str(),
              {list.x, list.y + list.h + row * rowHeight, list.w, rowHeight});
    }
}

} // namespace

int main() {
    Print("overlay", {0, 0, kOverlayWidth, kSmallestOverlayHeight});
    Print("overlay.captions",
          {0, kHeaderHeight, kOverlayWidth, kSmallestOverlayHeight - kHeaderHeight});
    PrintToolbar(false);
    PrintToolbar(true); // start and stop share a place

    const PopupLayout popup = LayOutPopup(96);
    Print("popup", {0, 0, popup.width, popup.height});
    Print("popup.key", popup.keyEdit);
    Print("popup.key_bar",
          {kPopupMargin, popup.statusRowY, popup.width - 2 * kPopupMargin, kKeyBarHeight});
    PrintList("popup.language_a", popup.langAList);
    PrintList("popup.language_b", popup.langBList);
    PrintList("popup.microphones", popup.micList);
    Print("popup.refresh_microphones", popup.refreshMic);
    PrintList("popup.loudspeakers", popup.loopbackList);
    Print("popup.refresh_loudspeakers", popup.refreshLoopback);
    Print("popup.start", popup.start);
}

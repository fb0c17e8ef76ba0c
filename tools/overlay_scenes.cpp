// Puts the real overlay into one state after the other on a real screen, for scripts/screenshots.
#include "overlay_probe.h"
#include "scene.h"

#include <string>

namespace {

// With so much room above the overlay and beside it, for a tooltip.
void Print(const char* name, const OverlayProbe& overlay, int room) {
    const RECT bounds = overlay.Bounds();
    scene::Print(name, {bounds.left, bounds.top - room, bounds.right + room, bounds.bottom});
}

void Show(const char* name, OverlayProbe& overlay, int room = 0) {
    overlay.Pump();
    Print(name, overlay, room);
    overlay.PumpUntil(scene::LineHasCome, std::chrono::seconds(30));
}

void Conversation(OverlayProbe& overlay) {
    overlay.Result("He was not an ill disposed young man", "No era un joven mal dispuesto");
    overlay.Result("unless to be rather cold hearted and rather selfish is to be ill disposed",
                   "a menos que ser bastante frío de corazón y bastante egoísta sea estar mal "
                   "dispuesto");
    overlay.Result("had he married a more amiable woman", "si hubiera casado con una mujer", false);
}

void Scripts(OverlayProbe& overlay) {
    overlay.Result("今日は本当にいい天気ですね。散歩に行きましょう。",
                   "今天天气真好，我们去散步吧。");
    overlay.Result("مرحبا بكم في الاجتماع اليوم", "ברוכים הבאים לפגישה היום 😀👍");
    overlay.Result("ยินดีต้อนรับสู่การประชุมวันนี้", "आज की बैठक में आपका स्वागत है");
    overlay.Result("오늘 회의에 오신 것을 환영합니다", "Καλώς ήρθατε · Добро пожаловать");
}

void ShowButtons(OverlayProbe& overlay) {
    const ToolbarRect button = overlay.Button(kMicrophoneButton);
    const ToolbarRect other = overlay.Button(kClearButton);
    overlay.Move(button.left + 5, button.top + 5);
    Show("hover-active", overlay, 60);
    overlay.Press(button.left + 5, button.top + 5);
    Show("press-active", overlay, 60);
    overlay.Send(WM_CAPTURECHANGED);
    overlay.Move(other.left + 5, other.top + 5);
    Show("hover", overlay, 60);
    overlay.Press(other.left + 5, other.top + 5);
    Show("press", overlay, 60);
    overlay.Send(WM_CAPTURECHANGED);
    overlay.Send(WM_MOUSELEAVE);
}

} // namespace

int main() {
    OverlayProbe overlay;
    Show("fresh", overlay);
    ShowButtons(overlay);
    overlay.Error("server_error_500");
    Show("error", overlay);
    overlay.Error("quota_exceeded");
    Show("quota", overlay);
    overlay.Send(kMsgStarted);
    Conversation(overlay);
    Show("captions", overlay);
    overlay.Command(kTranslationButton);
    Show("translations-off", overlay);
    overlay.Command(kTranslationButton);
    overlay.Command(kClearButton);
    overlay.Send(kMsgStarted);
    Scripts(overlay);
    Show("scripts", overlay);
    overlay.Result(std::string(300, 'w') + " a very long word, and " + std::string(500, 'm'),
                   "line\r\nbreaks\nand\ttabs \x01\x02 end");
    Show("long-text", overlay);
    for (int i = 0; i < 20; ++i) {
        Conversation(overlay);
    }
    overlay.Send(WM_MOUSEWHEEL, MAKEWPARAM(0, 1200));
    Show("scrolled", overlay);
    Print("menu", overlay, 0);
    overlay.Tray().ShowMenu();
    return 0;
}

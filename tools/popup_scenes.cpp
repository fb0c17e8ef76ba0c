// Puts the real settings popup into one state after the other on a real screen, for
// scripts/screenshots.
#include "dpi.h"
#include "popup_probe.h"
#include "scene.h"
#include "scripted_endpoints.h"
#include "stored_values.h"

namespace {

// With the room that an open list takes below.
void Show(const char* name, PopupProbe& popup, int below = 0) {
    popup.Pump();
    RECT bounds{};
    GetWindowRect(popup.Window(), &bounds);
    bounds.bottom += below;
    scene::Print(name, bounds);
    popup.PumpUntil(scene::LineHasCome, std::chrono::seconds(30));
}

void AddDevices(ScriptedEndpoints& devices) {
    const auto add = [&](const WCHAR* name, EDataFlow flow, std::uint32_t rate) {
        ScriptedEndpoint& device = devices.Add(name, flow);
        device.name = name;
        device.format = MixFormat(rate, 2, 32, true);
    };
    add(TEXT("Headset Microphone"), eCapture, 16000);
    add(TEXT("Built-in Audio Analog Stereo"), eCapture, 48000);
    add(TEXT("Conference room loudspeaker with a very long name (USB Audio)"), eRender, 44100);
    add(TEXT("Built-in Audio Analog Stereo"), eRender, 48000);
}

void ShowKeyStates(PopupProbe& popup) {
    popup.SetState({.status = KeyStatusChecking});
    for (int tick = 0; tick < 9; ++tick) {
        SendMessageW(popup.Window(), WM_TIMER, kAnimationTimerId, 0);
    }
    popup.StopTimers();
    Show("checking", popup);
    popup.SetState({KeyStatusValid, 5400, 1800, 7200, false});
    Show("valid", popup);
    popup.SetState({.status = KeyStatusValid, .unlimited = true});
    Show("unlimited", popup);
    popup.SetState({.status = KeyStatusInvalid});
    Show("invalid", popup);
    popup.SetState({.status = KeyStatusQuotaExhausted});
    Show("exhausted", popup);
    popup.SetState({.status = KeyStatusUnavailable});
    Show("unavailable", popup);
}

void ShowControls(PopupProbe& popup) {
    const auto toList = [&](int id, UINT message, WPARAM wParam) {
        SendMessageW(popup.Control(id), message, wParam, 0);
    };
    SendMessageW(popup.Control(kRefreshMicId), WM_MOUSEMOVE, 0, 0);
    SendMessageW(popup.Window(), WM_MOUSEMOVE, 0, MAKELPARAM(100, 340));
    Show("hover", popup);
    SendMessageW(popup.Window(), WM_MOUSELEAVE, 0, 0);
    toList(kLangBListId, WM_KEYDOWN, VK_SPACE);
    Show("list", popup, 40);
    toList(kLangBListId, WM_KEYDOWN, VK_ESCAPE);
    toList(kLoopbackListId, WM_KEYDOWN, VK_SPACE);
    Show("devices", popup, 40);
    toList(kLoopbackListId, WM_KEYDOWN, VK_ESCAPE);
    popup.Popup().SetRunning(true);
    Show("running", popup);
    popup.Popup().SetRunning(false);
}

} // namespace

int main() {
    HDC screen = GetDC(nullptr);
    DpiScale = GetDeviceCaps(screen, LOGPIXELSX); // as the overlay would
    ReleaseDC(nullptr, screen);
    ScriptedEndpoints devices;
    AddDevices(devices);
    PopupProbe popup;
    popup.Popup().Show();
    Show("empty", popup);
    popup.SetKey("kelvarin-0123456789-key");
    popup.StopTimers();
    ShowKeyStates(popup);
    popup.SetState({KeyStatusValid, 5400, 1800, 7200, false});
    ShowControls(popup);
    scene::Print("end", {});
    return 0;
}

#include "config_popup_layout.h"
#include "dpi.h"
#include "popup_probe.h"
#include "scripted_endpoints.h"
#include "stored_values.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

WideString StoredText(const PopupProbe& probe, const WCHAR* name) {
    return ReadStoredText(probe.Store(), name);
}
DWORD StoredRow(const PopupProbe& probe, const WCHAR* name) {
    return ReadStoredNumber(probe.Store(), name, 12345);
}

// ---- What is stored ----------------------------------------------------------------------------

TEST(Popup, StartsWithDefaultsWhenNothingIsStored) {
    ScriptedEndpoints devices;
    devices.Add(TEXT("m1"), eCapture).name = TEXT("Headset");
    devices.Add(TEXT("m2"), eCapture).name = TEXT("Webcam");
    devices.Add(TEXT("s1"), eRender).name = TEXT("Speakers");
    PopupProbe probe;
    const ConfigPopup& popup = probe.Popup();
    const ConfigData config = popup.BuildConfig();
    EXPECT_TRUE(config.access_key.empty());
    EXPECT_EQ(WideToUtf8(config.lang_a + TEXT(" ") + config.lang_a_tgt), "zh-CN zh-Hans");
    EXPECT_EQ(WideToUtf8(config.lang_b + TEXT(" ") + config.lang_b_tgt), "en-US en");
    EXPECT_EQ(WideToUtf8(config.mic_device.id), "m1");
    EXPECT_EQ(WideToUtf8(config.loopback_device.id), "s1");
    EXPECT_EQ(probe.Status(), KeyStatusNone);
    EXPECT_FALSE(popup.IsVisible());
}

TEST(Popup, KeepsWhatWasChosenOverARestart) {
    ScriptedEndpoints devices;
    for (const WCHAR* name : {TEXT("one"), TEXT("two"), TEXT("three")}) {
        devices.Add(name, eCapture).name = name;
        devices.Add(name + WideString(TEXT(" out")), eRender).name = name;
    }
    PopupProbe probe;
    probe.SetKey("key with \"quotes\", & and # and 文字");
    probe.Select(kLangAListId, 5);
    probe.Select(kLangBListId, -1);
    probe.Select(kMicListId, 2);
    probe.Select(kLoopbackListId, 1);
    probe.Command(kRefreshMicId + 1000); // nobody's
    EXPECT_TRUE(StoredText(probe, TEXT("access_key")).empty()) << "nothing is stored by choosing";
    probe.Popup().Hide();
    probe.Restart();
    const ConfigData config = probe.Popup().BuildConfig();
    EXPECT_EQ(WideToUtf8(config.access_key), "key with \"quotes\", & and # and 文字");
    EXPECT_EQ(config.lang_a, kLanguageSources[5].code);
    EXPECT_TRUE(config.lang_b.empty()) << "no choice stays no choice";
    EXPECT_EQ(WideToUtf8(config.mic_device.id), "three");
    EXPECT_EQ(WideToUtf8(config.loopback_device.id), "two out");
}

TEST(Popup, SavesWhenHiddenClosedOrStartedAndAtNoOtherMoment) {
    PopupProbe probe;
    const auto stored = [&] { return WideToUtf8(StoredText(probe, TEXT("access_key"))); };
    probe.Popup().Show();
    probe.SetKey("a");
    EXPECT_EQ(stored(), "");
    probe.Popup().Hide();
    EXPECT_EQ(stored(), "a");
    probe.Popup().Show();
    probe.SetKey("b");
    SendMessageW(probe.Window(), WM_CLOSE, 0, 0);
    EXPECT_EQ(stored(), "b");
    EXPECT_FALSE(probe.Popup().IsVisible());
    EXPECT_TRUE(IsWindow(probe.Window()));
    probe.SetKey("c");
    probe.Command(kStartButtonId);
    EXPECT_EQ(stored(), "c");
    EXPECT_EQ(probe.Starts(), 1);
    EXPECT_EQ(WideToUtf8(probe.StartedWith().access_key), "c");
    probe.SetKey("d");
    probe.DestroyPopup();
    EXPECT_EQ(stored(), "c") << "an exit saves nothing";
}

TEST(Popup, TakesStoredRowsOutsideTheTableForNoChoice) {
    for (const DWORD row : {DWORD{0xFFFFFFFF}, DWORD{100000}, DWORD{0x80000000}}) {
        PopupProbe probe([&](HKEY key) { WriteStoredNumber(key, TEXT("lang_a"), row); });
        EXPECT_EQ(probe.Selected(kLangAListId), "none") << row;
        EXPECT_TRUE(probe.Popup().BuildConfig().lang_a.empty()) << row;
        probe.Popup().Hide();
        EXPECT_EQ(StoredRow(probe, TEXT("lang_a")), 0xFFFFFFFFu) << row;
    }
}

TEST(Popup, CutsAKeyOfAnyLengthWithoutLosingTheProgram) {
    PopupProbe probe;
    probe.SetKey(std::string(10000, 'k'));
    EXPECT_EQ(probe.Popup().BuildConfig().access_key.size(), 511u);
    probe.Popup().Hide();
    EXPECT_EQ(StoredText(probe, TEXT("access_key")).size(), 511u);
    EXPECT_EQ(probe.Status(), KeyStatusChecking);
    probe.SetKey("");
}

// ---- Devices -----------------------------------------------------------------------------------

TEST(PopupDevices, AreLabelledByNameAndRateAndFoundAgainByName) {
    ScriptedEndpoints devices;
    ScriptedEndpoint& first = devices.Add(TEXT("m1"), eCapture);
    first.name = TEXT("Headset");
    first.format = MixFormat(48000, 2, 32, true);
    ScriptedEndpoint& second = devices.Add(TEXT("m2"), eCapture);
    second.name = TEXT("Webcam");
    second.Fail("GetMixFormat", E_FAIL); // its rate cannot be told
    PopupProbe probe(
        [](HKEY key) { WriteStoredText(key, TEXT("mic_device_name"), TEXT("Webcam")); });
    EXPECT_EQ(WideToUtf8(probe.List(kMicListId).items_[0]), "Headset  [48000 Hz]");
    EXPECT_EQ(probe.Selected(kMicListId), "Webcam");
    EXPECT_EQ(probe.Selected(kLoopbackListId), "(No playback device found)");

    probe.Select(kMicListId, 0);
    probe.Select(kLangAListId, 7);
    probe.Command(kRefreshLoopbackId);
    EXPECT_EQ(probe.Selected(kMicListId), "Headset  [48000 Hz]") << "the other list's refresh";
    probe.Command(kRefreshMicId);
    EXPECT_EQ(probe.Selected(kMicListId), "Webcam") << "the choice was not saved";
    EXPECT_EQ(probe.List(kLangAListId).selected_, 7);

    second.active = false;
    probe.Command(kRefreshMicId);
    EXPECT_EQ(probe.Selected(kMicListId), "Headset  [48000 Hz]");
    first.active = false;
    probe.Command(kRefreshMicId);
    EXPECT_EQ(probe.Selected(kMicListId), "(No microphone found)");
    probe.Popup().Hide();
    EXPECT_EQ(WideToUtf8(StoredText(probe, TEXT("mic_device_name"))), "Webcam");
    EXPECT_TRUE(probe.Popup().BuildConfig().mic_device.id.empty());
    second.active = true;
    probe.Command(kRefreshMicId);
    EXPECT_EQ(probe.Selected(kMicListId), "Webcam") << "back again";
}

TEST(PopupDevices, ASavedOneThatIsMissingIsNeitherForgottenNorOverlookedWhenItComesBack) {
    ScriptedEndpoints devices;
    devices.Add(TEXT("m1"), eCapture).name = TEXT("Built-in");
    ScriptedEndpoint& headset = devices.Add(TEXT("m2"), eCapture);
    headset.name = TEXT("Headset");
    headset.active = false;
    PopupProbe probe(
        [](HKEY key) { WriteStoredText(key, TEXT("mic_device_name"), TEXT("Headset")); });
    const auto stored = [&] { return WideToUtf8(StoredText(probe, TEXT("mic_device_name"))); };
    const auto usesMic = [&] { return WideToUtf8(probe.Popup().BuildConfig().mic_device.id); };

    probe.Popup().Show();
    EXPECT_EQ(usesMic(), "m1") << "what the list shows meanwhile";
    probe.Popup().Hide();
    EXPECT_EQ(stored(), "Headset");
    headset.active = true;
    probe.Popup().Show(); // looks for devices anew
    EXPECT_EQ(usesMic(), "m2");
    probe.Select(kMicListId, 0);
    probe.Popup().Show(); // it is open already
    EXPECT_EQ(usesMic(), "m1") << "a choice that is not saved yet";
    probe.Popup().Hide();
    EXPECT_EQ(stored(), "Built-in");

    WriteStoredText(probe.Store(), TEXT("mic_device_name"), TEXT("Headset"));
    headset.active = false;
    probe.Popup().Show();
    probe.Popup().Hide();
    headset.active = true;
    probe.Popup().FindMissingDevices(); // as a start does
    EXPECT_EQ(usesMic(), "m2");
    headset.active = false;
    probe.Popup().Show();
    probe.Select(kMicListId, 0); // on purpose, though it stood there
    headset.active = true;
    probe.Popup().FindMissingDevices();
    EXPECT_EQ(usesMic(), "m1");
    probe.Popup().Hide();
    EXPECT_EQ(stored(), "Built-in");
}

TEST(PopupDevices, OneThatIsChosenInThePlaceOfAMissingOneIsStored) {
    ScriptedEndpoints devices;
    devices.Add(TEXT("m1"), eCapture).name = TEXT("Built-in");
    devices.Add(TEXT("s1"), eRender).name = TEXT("Speakers");
    for (const int list : {kMicListId, kLoopbackListId}) {
        PopupProbe probe([](HKEY key) {
            WriteStoredText(key, stored::kMicrophone, TEXT("Gone"));
            WriteStoredText(key, stored::kLoopback, TEXT("Gone"));
        });
        probe.Select(list, 0);
        probe.Popup().Hide();
        EXPECT_EQ(WideToUtf8(StoredText(probe, stored::kMicrophone)),
                  list == kMicListId ? "Built-in" : "Gone");
        EXPECT_EQ(WideToUtf8(StoredText(probe, stored::kLoopback)),
                  list == kLoopbackListId ? "Speakers" : "Gone");
    }
}

TEST(PopupDevices, ManyAndOddlyNamedOnesAreAllShown) {
    ScriptedEndpoints devices;
    const WideString names[] = {TEXT(""),         WideString(300, WCHAR{'n'}),
                                TEXT("מיקרופון"), TEXT("same"),
                                TEXT("Same"),     TEXT("same")};
    for (int i = 0; i < 200; ++i) {
        const WideString id = Utf8ToWide("id" + std::to_string(i));
        devices.Add(id, eCapture).name = i < 6 ? names[i] : id;
    }
    PopupProbe probe([](HKEY key) { WriteStoredText(key, TEXT("mic_device_name"), TEXT("same")); });
    EXPECT_EQ(probe.List(kMicListId).items_.size(), 200u);
    EXPECT_EQ(WideToUtf8(probe.Popup().BuildConfig().mic_device.id), "id5") << "the last match";
    WriteStoredText(probe.Store(), TEXT("mic_device_name"), TEXT(""));
    probe.Command(kRefreshMicId);
    EXPECT_EQ(WideToUtf8(probe.Popup().BuildConfig().mic_device.id), "id0") << "empty is a name";
}

// ---- Controls ----------------------------------------------------------------------------------

TEST(PopupControls, StandWhereTheLayoutPutsThem) {
    struct Case {
        int id;
        ControlBox box;
    };
    for (const int dpi : {96, 192}) {
        DpiScale = dpi;
        const PopupProbe probe;
        const PopupLayout layout = LayOutPopup(dpi);
        const Case cases[] = {{kKeyEditId, layout.keyEdit},
                              {kLangAListId, layout.langAList},
                              {kLangBListId, layout.langBList},
                              {kMicListId, layout.micList},
                              {kRefreshMicId, layout.refreshMic},
                              {kLoopbackListId, layout.loopbackList},
                              {kRefreshLoopbackId, layout.refreshLoopback},
                              {kStartButtonId, layout.start}};
        for (const Case& c : cases) {
            RECT box{};
            GetWindowRect(probe.Control(c.id), &box);
            POINT corners[] = {{box.left, box.top}, {box.right, box.bottom}};
            for (POINT& corner : corners) {
                ScreenToClient(probe.Window(), &corner);
            }
            EXPECT_EQ(corners[0].x, c.box.x) << c.id;
            EXPECT_EQ(corners[0].y, c.box.y) << c.id;
            EXPECT_EQ(corners[1].x, c.box.x + c.box.w) << c.id;
            EXPECT_EQ(corners[1].y, c.box.y + c.box.h) << c.id;
        }
        RECT client{};
        GetClientRect(probe.Window(), &client);
        EXPECT_EQ(client.right, layout.width);
        EXPECT_EQ(client.bottom, layout.height);
    }
    DpiScale = 96;
}

TEST(PopupControls, CannotBeUsedDuringARun) {
    PopupProbe probe;
    const int ids[] = {kKeyEditId,    kLangAListId,    kLangBListId,       kMicListId,
                       kRefreshMicId, kLoopbackListId, kRefreshLoopbackId, kStartButtonId};
    const auto text = [&] {
        WCHAR buffer[64];
        GetWindowTextW(probe.Control(kStartButtonId), buffer, 64);
        return WideToUtf8(buffer);
    };
    for (const bool running : {true, false}) {
        probe.Popup().SetRunning(running);
        EXPECT_EQ(text(), running ? "⏹   Translating…" : "▶   Start Translation");
        for (const int id : ids) {
            EXPECT_EQ(IsWindowEnabled(probe.Control(id)) != FALSE, !running) << id;
        }
    }
}

TEST(PopupControls, TheKeyFieldSelectsAllWithControlAAndTypesNothingByIt) {
    PopupProbe probe;
    HWND field = probe.Control(kKeyEditId);
    probe.Type("secret");
    EXPECT_EQ(probe.Key(), "secret");
    BYTE keys[256] = {};
    keys[VK_CONTROL] = 0x80;
    SetKeyboardState(keys);
    SendMessageW(field, WM_KEYDOWN, 'A', 1);
    SendMessageW(field, WM_CHAR, 1, 1);
    keys[VK_CONTROL] = 0;
    SetKeyboardState(keys);
    EXPECT_EQ(probe.Key(), "secret");
    probe.Type("n");
    EXPECT_EQ(probe.Key(), "n") << "what was selected is replaced";
    probe.SetKey("");
}

TEST(PopupControls, LightUpUnderThePointer) {
    PopupProbe probe;
    probe.Popup().Show();
    HWND refreshMic = probe.Control(kRefreshMicId);
    HWND refreshLoopback = probe.Control(kRefreshLoopbackId);
    SendMessageW(refreshMic, WM_MOUSEMOVE, 0, 0);
    EXPECT_EQ(probe.HoveredControl(), kRefreshMicId);
    SendMessageW(refreshLoopback, WM_MOUSEMOVE, 0, 0);
    EXPECT_EQ(probe.HoveredControl(), kRefreshLoopbackId);
    SendMessageW(refreshMic, WM_MOUSELEAVE, 0, 0);
    EXPECT_EQ(probe.HoveredControl(), kRefreshLoopbackId) << "another one has it by now";
    SendMessageW(refreshLoopback, WM_MOUSELEAVE, 0, 0);
    EXPECT_EQ(probe.HoveredControl(), 0);
    const auto move = [&](int x, int y) {
        SendMessageW(probe.Window(), WM_MOUSEMOVE, 0, MAKELPARAM(x, y));
        return probe.HoveredControl();
    };
    EXPECT_EQ(move(100, 340), kStartButtonId);
    EXPECT_EQ(move(100, 240), 0) << "a list";
    EXPECT_EQ(move(350, 240), kRefreshMicId);
    SendMessageW(probe.Window(), WM_MOUSELEAVE, 0, 0);
    EXPECT_EQ(probe.HoveredControl(), 0);
}

// ---- Looks -------------------------------------------------------------------------------------

TEST(PopupLooks, AreThoseOfTheCard) {
    const PopupProbe probe;
    const auto card = probe.Card();
    EXPECT_EQ(card->At(5, 200), 0x121220u);
    EXPECT_PRED2(IsNear, card->At(380, 0), Blend(0x121220, 0x16FFFFFF)) << "the header begins";
    EXPECT_PRED2(IsNear, card->At(200, 44), Blend(0x121220, 0x19FFFFFF)) << "the header's line";
    EXPECT_EQ(card->At(200, 46), 0x121220u);
    EXPECT_EQ(card->At(200, 90), 0x1E1E32u) << "the key's card";
    EXPECT_EQ(card->At(16, 77), 0x121220u) << "its corner is round";
    EXPECT_PRED2(IsNear, card->At(200, 110), Blend(0x121220, 0x23FFFFFF)) << "the empty bar";
    EXPECT_EQ(card->At(200, 115), 0x121220u) << "below it";
}

TEST(PopupLooks, TheBarTellsTheStateOfTheKey) {
    PopupProbe probe;
    const auto bar = [&](const KeyCheckResult& state, int x) {
        probe.SetState(state);
        return probe.Card()->At(x, 111);
    };
    const std::uint32_t greenTrack = Blend(0x121220, 0x1E3DDC84);
    KeyCheckResult valid{KeyStatusValid, 45, 15, 60, false};
    EXPECT_PRED2(IsNear, bar(valid, 60), Blend(greenTrack, 0xBE3DDC84)) << "a quarter is used";
    EXPECT_PRED2(IsNear, bar(valid, 120), greenTrack);
    valid.unlimited = true;
    EXPECT_PRED2(IsNear, bar(valid, 60), greenTrack);
    EXPECT_PRED2(IsNear, bar({.status = KeyStatusInvalid}, 60), Blend(0x121220, 0x23FF4444));
    EXPECT_PRED2(IsNear, bar({.status = KeyStatusQuotaExhausted}, 300),
                 Blend(Blend(0x121220, 0x23FF8800), 0xAAFF8800));
    EXPECT_PRED2(IsNear, bar({.status = KeyStatusUnavailable}, 60), Blend(0x121220, 0x23777777));

    probe.SetState({.status = KeyStatusChecking});
    const std::uint32_t dimTrack = Blend(0x121220, 0x1CFFFFFF);
    EXPECT_PRED2(IsNear, probe.Card()->At(200, 111), dimTrack) << "the band has not come in yet";
    probe.SetPhase(0.5F); // its middle is the bar's
    EXPECT_PRED2(IsNear, probe.Card()->At(195, 111), Blend(dimTrack, 0xBCA5C3FF));
    EXPECT_PRED2(IsNear, probe.Card()->At(60, 111), dimTrack);
}

TEST(PopupLooks, ButtonsShowTheirState) {
    PopupProbe probe;
    const auto start = [&](UINT state) {
        return probe.ButtonFace(kStartButtonId, state)->At(30, 1);
    };
    EXPECT_PRED2(IsNear, start(0), 0x30BA65u);
    EXPECT_PRED2(IsNear, start(ODS_SELECTED), 0x229950u);
    EXPECT_PRED2(IsNear, start(ODS_SELECTED | ODS_DISABLED), 0x3A3A4Eu);
    EXPECT_PRED2(IsNear, probe.ButtonFace(kStartButtonId, 0)->At(30, 32), 0x22964Eu);
    const auto refresh = [&](UINT state) {
        return probe.ButtonFace(kRefreshMicId, state)->At(15, 3);
    };
    EXPECT_EQ(refresh(0), 0x121220u);
    EXPECT_EQ(refresh(ODS_SELECTED), 0x282840u);
    SendMessageW(probe.Control(kRefreshMicId), WM_MOUSEMOVE, 0, 0);
    EXPECT_EQ(refresh(0), 0x282840u);
}

} // namespace

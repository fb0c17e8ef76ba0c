// The settings popup: one small card beside the overlay with the access key, the languages, the
// devices and the Start button. Its parts by topic: config_popup.cpp life, messages and the store,
// config_popup_devices.cpp the device lists, config_popup_status.cpp the state of the key,
// config_popup_paint.cpp the looks.
#pragma once

#include "audio_capture.h"
#include "config_popup_layout.h"
#include "drawing.h"
#include "drop_list.h"
#include "key_check.h"
#include "key_status.h"
#include "languages.h"

#include <windows.h>

#include <functional>
#include <memory>
#include <vector>

// UI thread only. There is one, made with its owner and hidden at first.
class ConfigPopup {
public:
    using Start = std::function<void(const ConfigData&)>;

    // `configKey` is the owner's, outlives this, may be null inside, and is read afresh at each
    // use. `onStart` is what the Start button does; empty, the button only saves.
    ConfigPopup(HWND owner, const HKEY* configKey, Start onStart);
    // Saves nothing.
    ~ConfigPopup();
    ConfigPopup(const ConfigPopup&) = delete;
    ConfigPopup& operator=(const ConfigPopup&) = delete;

    // Looks for devices anew.
    void Show();
    // Saves the settings.
    void Hide();
    bool IsVisible() const { return IsWindowVisible(hwnd_) != FALSE; }
    // Puts it beside its owner, wherever that is now.
    void Reposition() const;
    // During a run nothing can be changed here.
    void SetRunning(bool running);
    // Looks for a saved device that was not there when its list was filled.
    void FindMissingDevices();
    // The choice for a run, as the controls show it now, saved or not.
    ConfigData BuildConfig() const;

private:
    friend class PopupProbe; // what the tests look at and press

    // Life and messages.
    static LRESULT CALLBACK WindowProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
    static LRESULT CALLBACK EditProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam,
                                          UINT_PTR id, DWORD_PTR reference);
    static LRESULT CALLBACK RefreshProcedure(HWND window, UINT message, WPARAM wParam,
                                             LPARAM lParam, UINT_PTR id, DWORD_PTR popup);
    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam);
    void CreatePopup();
    void OnDestroy() const;
    struct Control;
    struct Controls;
    void BuildControls();
    void Build(const Control& control, const ControlBox& box);
    void CreateFonts();
    void AddLanguages();
    void EraseBackground(HDC dc) const;
    LRESULT OnDrawItem(const DRAWITEMSTRUCT& item) const;
    void OnCommand(int id, int notification);
    void OnTimer(UINT_PTR id);
    void OnStartButton();
    void OnMouseMove(POINT point);
    void OnMouseLeave();
    bool HandleRefresh(HWND button, int id, UINT message);
    void TrackLeave(HWND window);
    void SetHover(int id);
    static const Control* FindControl(int id);
    void InvalidateControl(int id) const;
    WideString KeyText(std::size_t room) const;
    void StopTimer(UINT_PTR& timer) const;

    // The store.
    void LoadFromRegistry();
    void SaveToRegistry() const;

    // The device lists.
    void FillMicList();
    void FillLoopbackList();

    // The state of the key.
    void OnKeyEdited();
    void StartKeyCheck();
    void CancelKeyCheck();
    void SetKeyStatus(const KeyCheckResult& state);
    KeyCheckResult KeyState() const;
    void OnKeyStatus(LPARAM lParam);
    void OnKeyCheckEnded();
    void OnDebounceTimer();
    void OnAnimationTimer();
    void OnRefreshTimer();
    void CheckShownKey();
    void StopAnimation();
    void InvalidateStatusRow() const;

    // The looks.
    void PaintPopup() const;
    void PaintCard(Gdiplus::GpGraphics* graphics, int width) const;
    void PaintButton(const DRAWITEMSTRUCT& item) const;
    void PaintStatusRow(Gdiplus::GpGraphics* graphics, float x, float y, float width) const;
    void PaintStatusFill(Gdiplus::GpGraphics* graphics, const Gdiplus::RectF& bar) const;
    void PaintCheckingBand(Gdiplus::GpGraphics* graphics, const Gdiplus::RectF& bar) const;

    GdiBrushOwner staticBrush_; // made when first asked for
    GdiBrushOwner editBrush_;
    HWND hwnd_ = nullptr;
    HWND parent_;
    const HKEY* configKeyRef_;
    Start onStart_;
    bool running_ = false;
    int hoverId_ = 0;            // the control under the pointer; 0: none
    bool trackingMouse_ = false; // WM_MOUSELEAVE has been asked for
    GdiFontOwner labelFont_;
    GdiFontOwner bodyFont_;
    GdiFontOwner boldFont_;
    GdiFontOwner iconFont_;
    GdiFontOwner bigIconFont_;
    int keyRowY_ = 0;
    int statusRowY_ = 0;
    HWND keyEdit_ = nullptr;
    HWND refreshMic_ = nullptr;
    HWND refreshLoopback_ = nullptr;
    HWND start_ = nullptr;
    std::unique_ptr<DropList> langAList_;
    std::unique_ptr<DropList> langBList_;
    std::unique_ptr<DropList> micList_;
    std::unique_ptr<DropList> loopbackList_;
    std::vector<AudioDeviceInfo> micDevices_; // record i is entry i of the list
    std::vector<AudioDeviceInfo> loopbackDevices_;
    bool micChosen_ = false; // by the user, since the list was filled
    bool loopbackChosen_ = false;

    KeyStatus keyStatus_ = KeyStatusNone;
    double remainingSeconds_ = 0;
    double usedSeconds_ = 0;
    double initialSeconds_ = 0;
    bool unlimited_ = false;
    UINT_PTR debounceTimer_ = 0; // 0: not running
    UINT_PTR animTimer_ = 0;
    UINT_PTR refreshTimer_ = 0;
    std::shared_ptr<KeyCheckFlags> checkFlags_ = std::make_shared<KeyCheckFlags>();
    std::shared_ptr<HttpCaller> checkCaller_; // of the check last started; null before the first
    bool checkSkipped_ = false;               // one was wanted while another was in flight
    float animPhase_ = 0;                     // 0 to 1
    WideString checkedKey_;                   // of the check last started
};

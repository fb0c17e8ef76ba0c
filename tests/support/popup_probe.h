// A settings popup under test: a real window beside an owner of its own, with a store of its own,
// whose messages a test serves itself.
#pragma once

#include "config_popup.h"
#include "config_popup_ids.h"
#include "test_picture.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class PopupProbe {
public:
    // `prepare` may put values into the store before the popup reads them.
    explicit PopupProbe(const std::function<void(HKEY)>& prepare = nullptr);
    // Waits for checks that are under way.
    ~PopupProbe();
    PopupProbe(const PopupProbe&) = delete;
    PopupProbe& operator=(const PopupProbe&) = delete;

    void Pump();
    // Serves messages until the condition holds; false after `limit`.
    bool PumpUntil(const std::function<bool()>& condition,
                   std::chrono::milliseconds limit = std::chrono::seconds(20));
    void DestroyPopup() { popup_.reset(); }
    // A second popup on the same store, as the next start of the program makes it.
    void Restart();

    ConfigPopup& Popup() { return *popup_; }
    HWND Window() const { return popup_->hwnd_; }
    HWND Owner() const { return owner_; }
    HKEY Store() const { return key_; }
    HWND Control(int id) const { return GetDlgItem(Window(), id); }
    DropList& List(int id);
    std::string Selected(int listId);
    // As a choice in the open list is made and told.
    void Select(int listId, int entry);
    void Command(int id) { SendMessageW(Window(), WM_COMMAND, MAKEWPARAM(id, BN_CLICKED), 0); }
    int HoveredControl() const { return popup_->hoverId_; }
    int Starts() const { return starts_; }
    const ConfigData& StartedWith() const { return startedWith_; }

    // As typed, one character after the other.
    void Type(const std::string& text);
    void SetKey(const std::string& key);
    std::string Key() const { return WideToUtf8(popup_->KeyText(kStoredKeyRoom)); }
    KeyStatus Status() const { return popup_->keyStatus_; }
    std::string StatusText() const { return WideToUtf8(KeyStatusText(popup_->KeyState())); }
    bool CheckInFlight() const { return popup_->checkFlags_->checkInFlight; }
    bool Debouncing() const { return popup_->debounceTimer_ != 0; }
    std::shared_ptr<KeyCheckFlags> Flags() const { return popup_->checkFlags_; }
    float Phase() const { return popup_->animPhase_; }
    bool Animated() const { return popup_->animTimer_ != 0; }
    void SetState(const KeyCheckResult& state) { popup_->SetKeyStatus(state); }
    void SetPhase(float phase) { popup_->animPhase_ = phase; }
    // Nothing happens by itself any more.
    void StopTimers();
    // The periodic check, without its half minute.
    void RefreshTimer() { SendMessageW(Window(), WM_TIMER, kRefreshTimerId, 0); }

    // Waits until the popup's checks have ended, which may be after its own end: at the end of the
    // process a thread may not be in the network's libraries any more.
    static std::function<void()> WaitForChecksOf(const ConfigPopup& popup);

    static bool IsLocked(const ConfigPopup& popup) {
        return IsWindowEnabled(popup.keyEdit_) == FALSE;
    }

    std::unique_ptr<TestPicture> Card() const;
    std::unique_ptr<TestPicture> ButtonFace(int id, UINT state) const;

private:
    void MakePopup();

    GdiplusSession gdiplus_;
    HWND owner_ = nullptr;
    HKEY key_ = nullptr;
    int starts_ = 0;
    ConfigData startedWith_;
    std::vector<std::function<void()>> waitForChecks_; // of each popup so far
    std::unique_ptr<ConfigPopup> popup_;
};

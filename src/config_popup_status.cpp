// The popup's side of the key's state: when it is checked, which answers count, and the timers.
#include "config_popup.h"
#include "config_popup_ids.h"
#include "config_popup_layout.h"
#include "dpi.h"

namespace {

constexpr float kPhaseStep = 0.05F; // of a sweep, at each tick

} // namespace

// The field is checked once the user has stopped typing; until then the row says that it will be.
// A check of what stood there before is of no use any more.
void ConfigPopup::OnKeyEdited() {
    StopTimer(debounceTimer_);
    const WideString key = KeyText(kCheckedKeyRoom);
    if (key != checkedKey_) {
        CancelKeyCheck();
    }
    if (key.empty()) {
        SetKeyStatus({.status = KeyStatusNone});
        return;
    }
    debounceTimer_ = SetTimer(hwnd_, kDebounceTimerId, kDebounceMs, nullptr);
    SetKeyStatus({.status = KeyStatusChecking});
}

void ConfigPopup::OnDebounceTimer() {
    StopTimer(debounceTimer_);
    StartKeyCheck();
}

// A refused key is not asked about again: only the user can mend it.
void ConfigPopup::OnRefreshTimer() {
    if (keyStatus_ == KeyStatusValid || keyStatus_ == KeyStatusQuotaExhausted) {
        CheckShownKey();
    }
}

void ConfigPopup::CheckShownKey() {
    if (KeyText(kCheckedKeyRoom).empty()) {
        return;
    }
    keyStatus_ = KeyStatusChecking;
    InvalidateStatusRow();
    StartKeyCheck();
}

void ConfigPopup::StartKeyCheck() {
    if (checkFlags_->checkInFlight) {
        checkSkipped_ = true;
        return;
    }
    checkSkipped_ = false;
    const WideString key = KeyText(kCheckedKeyRoom);
    if (key.empty()) {
        SetKeyStatus({.status = KeyStatusNone});
        return;
    }
    checkFlags_->checkCancelled = false;
    checkFlags_->checkInFlight = true;
    checkedKey_ = key;
    checkCaller_ = std::make_shared<HttpCaller>();
    SetKeyStatus({.status = KeyStatusChecking});
    if (!StartKeyCheckThread({this, hwnd_, key, checkCaller_, checkFlags_})) {
        SetKeyStatus({.status = KeyStatusUnavailable});
    }
}

// No answer comes any more, and the next check need not wait for this one.
void ConfigPopup::CancelKeyCheck() {
    checkFlags_->checkCancelled = true;
    if (checkCaller_ != nullptr) {
        checkCaller_->GiveUp();
    }
}

// An answer about a key that is no longer in the field is dropped.
void ConfigPopup::OnKeyStatus(LPARAM lParam) {
    const std::unique_ptr<const KeyCheckResult> result(
        reinterpret_cast<const KeyCheckResult*>(lParam));
    if (result != nullptr && KeyText(kCheckedKeyRoom) == checkedKey_) {
        SetKeyStatus(*result);
    }
}

// Makes up for a check that could not begin while another one was in flight, if the row still waits
// for it. While the user types, the pause after that begins one anyway.
void ConfigPopup::OnKeyCheckEnded() {
    if (checkSkipped_ && debounceTimer_ == 0 && keyStatus_ == KeyStatusChecking) {
        StartKeyCheck();
    }
}

void ConfigPopup::SetKeyStatus(const KeyCheckResult& state) {
    keyStatus_ = state.status;
    remainingSeconds_ = state.remainingSeconds;
    usedSeconds_ = state.usedSeconds;
    initialSeconds_ = state.initialSeconds;
    unlimited_ = state.unlimited;
    if (keyStatus_ != KeyStatusChecking) {
        StopAnimation();
    } else if (animTimer_ == 0) {
        animTimer_ = SetTimer(hwnd_, kAnimationTimerId, kAnimationPeriodMs, nullptr);
    }
    InvalidateStatusRow();
}

KeyCheckResult ConfigPopup::KeyState() const {
    return {keyStatus_, remainingSeconds_, usedSeconds_, initialSeconds_, unlimited_};
}

void ConfigPopup::StopAnimation() {
    StopTimer(animTimer_);
    animPhase_ = 0;
}

void ConfigPopup::OnAnimationTimer() {
    animPhase_ += kPhaseStep;
    if (animPhase_ >= 1.0F) {
        animPhase_ -= 1.0F;
    }
    InvalidateStatusRow();
}

void ConfigPopup::InvalidateStatusRow() const {
    RECT client{};
    GetClientRect(hwnd_, &client);
    const RECT row{S(kPopupMargin), statusRowY_, client.right - S(kPopupMargin),
                   statusRowY_ + S(kStatusRowHeight)};
    InvalidateRect(hwnd_, &row, FALSE);
}

#include "popup_probe.h"

#include <random>
#include <thread>

namespace {

constexpr const WCHAR* kOwnerClass = TEXT("KelvarinPopupOwner");

HWND MakeOwner() {
    WNDCLASSEXW owner{};
    owner.cbSize = sizeof owner;
    owner.lpfnWndProc = DefWindowProcW;
    owner.hInstance = GetModuleHandleW(nullptr);
    owner.lpszClassName = kOwnerClass;
    RegisterClassExW(&owner); // refused from the second time on
    return CreateWindowExW(WS_EX_TOOLWINDOW, kOwnerClass, TEXT("owner"), WS_POPUP, 20, 100, 200,
                           420, nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
}

// A key that nobody used before.
HKEY MakeStore() {
    const WideString name =
        Utf8ToWide("Software\\Kelvarin\\Tests\\" + std::to_string(std::random_device()()));
    HKEY key = nullptr;
    RegCreateKeyExW(HKEY_CURRENT_USER, name.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                    nullptr);
    return key;
}

} // namespace

PopupProbe::PopupProbe(const std::function<void(HKEY)>& prepare)
    : owner_(MakeOwner()), key_(MakeStore()) {
    if (prepare) {
        prepare(key_);
    }
    MakePopup();
}

PopupProbe::~PopupProbe() {
    popup_.reset();
    for (const auto& wait : waitForChecks_) {
        wait();
    }
    RegCloseKey(key_);
    DestroyWindow(owner_);
}

void PopupProbe::MakePopup() {
    popup_ = std::make_unique<ConfigPopup>(owner_, &key_, [this](const ConfigData& config) {
        ++starts_;
        startedWith_ = config;
    });
    waitForChecks_.push_back(WaitForChecksOf(*popup_));
}

std::function<void()> PopupProbe::WaitForChecksOf(const ConfigPopup& popup) {
    return [flags = popup.checkFlags_] {
        while (flags.use_count() > 1) {
            std::this_thread::sleep_for(
                std::chrono::milliseconds(1)); // the check goes on meanwhile
        }
    };
}

void PopupProbe::Restart() {
    popup_.reset();
    MakePopup();
}

void PopupProbe::Pump() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != FALSE) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

bool PopupProbe::PumpUntil(const std::function<bool()>& condition,
                           std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (Pump(); !condition(); Pump()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // the check goes on meanwhile
    }
    return true;
}

DropList& PopupProbe::List(int id) {
    switch (id) {
    case kLangAListId:
        return *popup_->langAList_;
    case kLangBListId:
        return *popup_->langBList_;
    case kMicListId:
        return *popup_->micList_;
    default:
        return *popup_->loopbackList_;
    }
}

std::string PopupProbe::Selected(int listId) {
    const DropList& list = List(listId);
    const auto entry = static_cast<std::size_t>(list.selected_);
    return entry < list.items_.size() ? WideToUtf8(list.items_[entry]) : "none";
}

void PopupProbe::Select(int listId, int entry) {
    List(listId).selected_ = entry;
    SendMessageW(Window(), WM_COMMAND, MAKEWPARAM(listId, CBN_SELCHANGE), 0);
}

void PopupProbe::Type(const std::string& text) {
    for (const WCHAR character : Utf8ToWide(text)) {
        SendMessageW(popup_->keyEdit_, WM_CHAR, character, 1);
    }
}

void PopupProbe::SetKey(const std::string& key) {
    SetWindowTextW(popup_->keyEdit_, Utf8ToWide(key).c_str());
}

void PopupProbe::StopTimers() {
    for (UINT_PTR* timer : {&popup_->debounceTimer_, &popup_->animTimer_, &popup_->refreshTimer_}) {
        popup_->StopTimer(*timer);
    }
}

std::unique_ptr<TestPicture> PopupProbe::Card() const {
    RECT client{};
    GetClientRect(Window(), &client);
    auto picture = std::make_unique<TestPicture>(client.right, client.bottom);
    popup_->PaintCard(picture->Graphics(), client.right);
    return picture;
}

std::unique_ptr<TestPicture> PopupProbe::ButtonFace(int id, UINT state) const {
    DRAWITEMSTRUCT item{};
    item.CtlID = static_cast<UINT>(id);
    item.itemState = state;
    item.hwndItem = Control(id);
    GetClientRect(item.hwndItem, &item.rcItem);
    auto picture = std::make_unique<TestPicture>(item.rcItem.right, item.rcItem.bottom);
    item.hDC = picture->Context();
    SendMessageW(Window(), WM_DRAWITEM, static_cast<WPARAM>(id), reinterpret_cast<LPARAM>(&item));
    return picture;
}

// The settings popup as a window: its controls, the messages that it gets, and what it stores.
#include "config_popup.h"

#include "config_popup_controls.h"
#include "dpi.h"
#include "stored_values.h"
#include "theme.h"
#include "window_class.h"
#include "window_messages.h"
#include "windows_additions.h"

#include <commctrl.h>

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr int kFirstHeight = 100; // until the controls tell how much they need

constexpr COLORREF kLabelText = RGB(0xAA, 0xAA, 0xCC);

constexpr const WCHAR* kDefaultLanguageA = TEXT("zh-CN");
constexpr const WCHAR* kDefaultLanguageB = TEXT("en-US");

constexpr const WCHAR* kStartText = TEXT("▶   Start Translation");
constexpr const WCHAR* kRunningText = TEXT("⏹   Translating…");

constexpr WCHAR kSelectAllCharacter = 1; // what Ctrl+A types

GdiFontOwner MakeGdiFont(const WCHAR* face, int size, int weight) {
    return GdiFontOwner(CreateFontW(-S(size), 0, 0, 0, weight, 0, 0, 0, DEFAULT_CHARSET, 0, 0,
                                    CLEARTYPE_QUALITY, 0, face));
}

// A row of the language table, or -1 for none.
int StoredRow(HKEY key, const WCHAR* name, const WCHAR* defaultLanguage) {
    const DWORD row =
        ReadStoredNumber(key, name, static_cast<DWORD>(RowOfLanguage(defaultLanguage)));
    return row < kLanguageSources.size() ? static_cast<int>(row) : -1;
}

// Stores what the user has chosen. What the list shows for want of the saved device is not stored:
// that one may come back.
void StoreDevice(HKEY key, const WCHAR* name, const AudioDeviceInfo* device, bool byUser) {
    if (device != nullptr && (byUser || ReadStoredText(key, name).empty())) {
        WriteStoredText(key, name, device->name);
    }
}

// Answers a WM_CTLCOLOR message: the colours of the text and of its background.
LRESULT ColourControl(WPARAM dc, COLORREF text, COLORREF background, GdiBrushOwner& brush) {
    if (brush == nullptr) {
        brush.reset(CreateSolidBrush(background));
    }
    SetTextColor(reinterpret_cast<HDC>(dc), text);
    SetBkColor(reinterpret_cast<HDC>(dc), background);
    return reinterpret_cast<LRESULT>(brush.get());
}

} // namespace

// ---- Beginning and end --------------------------------------------------------------------------

ConfigPopup::ConfigPopup(HWND owner, const HKEY* configKey, Start onStart)
    : parent_(owner), configKeyRef_(configKey), onStart_(std::move(onStart)) {
    RegisterClassOnce(kPopupClass, WindowProcedure, [](WNDCLASSEXW& popup) {
        popup.hCursor = LoadCursorW(nullptr, IDC_ARROW);
        popup.hbrBackground = CreateSolidBrush(theme::kWindowClear);
    });
    CreatePopup();
    BuildControls();
    LoadFromRegistry();
}

ConfigPopup::~ConfigPopup() {
    StopTimer(debounceTimer_);
    CancelKeyCheck();
    StopAnimation();
    StopTimer(refreshTimer_);
    langAList_.reset();
    langBList_.reset();
    micList_.reset();
    loopbackList_.reset();
    DestroyWindow(hwnd_);
}

// Also when the owner's window takes this one with it. An answer that is still on its way finds no
// window; one that has come is taken out here.
void ConfigPopup::OnDestroy() const {
    checkFlags_->checkCancelled = true;
    MSG waiting{};
    while (PeekMessageW(&waiting, hwnd_, kMsgKeyStatus, kMsgKeyStatus, PM_REMOVE) != FALSE) {
        if (waiting.message == WM_QUIT) { // which comes whatever one asks for
            PostQuitMessage(static_cast<int>(waiting.wParam));
            return;
        }
        const std::unique_ptr<KeyCheckResult> unread(
            reinterpret_cast<KeyCheckResult*>(waiting.lParam));
    }
}

void ConfigPopup::CreatePopup() {
    CreateWindowExW(WS_EX_TOPMOST | WS_EX_TOOLWINDOW, kPopupClass, TEXT("Config"), WS_POPUP, 0, 0,
                    S(kPopupWidth), kFirstHeight, parent_, nullptr, GetModuleHandleW(nullptr),
                    this);
    DwmSetWindowAttribute(hwnd_, kWindowCornerPreference, &kRoundCorners, sizeof kRoundCorners);
}

void ConfigPopup::CreateFonts() {
    labelFont_ = MakeGdiFont(theme::kTextFamily, 10, 400);
    bodyFont_ = MakeGdiFont(theme::kTextFamily, 12, 400);
    boldFont_ = MakeGdiFont(theme::kTextFamily, 12, 600);
    iconFont_ = MakeGdiFont(theme::kIconFamily, 13, 400);
    bigIconFont_ = MakeGdiFont(theme::kIconFamily, 17, 400);
}

// In the order in which the Tab key would visit them.
struct ConfigPopup::Controls {
    using P = ConfigPopup;
    using L = PopupLayout;

    static constexpr std::array kRows = {
        Control::Label(TEXT("Access Key"), &L::keyLabel),
        Control::Edit(kKeyEditId, &L::keyEdit, &P::keyEdit_),
        Control::Label(TEXT("Language A"), &L::langALabel),
        Control::Label(TEXT("Language B"), &L::langBLabel),
        Control::DropDown(kLangAListId, &L::langAList, &P::langAList_),
        Control::DropDown(kLangBListId, &L::langBList, &P::langBList_),
        Control::Label(TEXT("⇄"), &L::swapGlyph, &P::bigIconFont_, SS_CENTER),
        Control::Label(theme::kMicrophoneIcon, &L::micIcon, &P::iconFont_),
        Control::Label(TEXT("Microphone Device"), &L::micLabel),
        Control::DropDown(kMicListId, &L::micList, &P::micList_),
        Control::Button(kRefreshMicId, theme::kRefreshIcon, &L::refreshMic, &P::iconFont_,
                        &P::refreshMic_, kRefreshLook),
        Control::Label(theme::kSpeakerIcon, &L::loopbackIcon, &P::iconFont_),
        Control::Label(TEXT("System Audio Device"), &L::loopbackLabel),
        Control::DropDown(kLoopbackListId, &L::loopbackList, &P::loopbackList_),
        Control::Button(kRefreshLoopbackId, theme::kRefreshIcon, &L::refreshLoopback, &P::iconFont_,
                        &P::refreshLoopback_, kRefreshLook),
        Control::Button(kStartButtonId, kStartText, &L::start, &P::boldFont_, &P::start_,
                        kStartLook),
    };
};

const ConfigPopup::Control* ConfigPopup::FindControl(int id) {
    const auto* const row = std::find_if(Controls::kRows.begin(), Controls::kRows.end(),
                                         [id](const Control& control) { return control.id == id; });
    return id != 0 && row != Controls::kRows.end() ? row : nullptr;
}

void ConfigPopup::BuildControls() {
    CreateFonts();
    const PopupLayout layout = LayOutPopup(DpiScale);
    keyRowY_ = layout.keyRowY;
    statusRowY_ = layout.statusRowY;
    for (const Control& control : Controls::kRows) {
        Build(control, layout.*control.box);
    }
    SetWindowSubclass(keyEdit_, EditProcedure, kKeyEditId, 0);
    for (const int id : {kRefreshMicId, kRefreshLoopbackId}) {
        SetWindowSubclass(GetDlgItem(hwnd_, id), RefreshProcedure, static_cast<UINT_PTR>(id),
                          reinterpret_cast<DWORD_PTR>(this));
    }
    AddLanguages();
    SetWindowPos(hwnd_, nullptr, 0, 0, layout.width, layout.height, SWP_NOMOVE | SWP_NOZORDER);
    FillMicList();
    FillLoopbackList();
}

void ConfigPopup::Build(const Control& control, const ControlBox& box) {
    HFONT font = (this->*control.font).get();
    if (control.list != nullptr) {
        auto& list = this->*control.list;
        list = std::make_unique<DropList>(hwnd_, box.x, box.y, box.w, box.h, control.id);
        list->SetFont(font);
        return;
    }
    HWND window = CreateWindowExW(
        0, control.windowClass, control.text, WS_CHILD | WS_VISIBLE | control.style, box.x, box.y,
        box.w, box.h, hwnd_, ControlNumber(control.id), GetModuleHandleW(nullptr), nullptr);
    SendMessageW(window, WM_SETFONT, reinterpret_cast<WPARAM>(font), TRUE);
    if (control.window != nullptr) {
        this->*control.window = window;
    }
}

void ConfigPopup::AddLanguages() {
    for (const LanguageEntry& language : kLanguageSources) {
        langAList_->items_.push_back(language.name);
        langBList_->items_.push_back(language.name);
    }
}

// ---- For the overlay ----------------------------------------------------------------------------

void ConfigPopup::Show() {
    if (!IsVisible()) { // else a choice may stand there that is not saved
        FillMicList();
        FillLoopbackList();
    }
    Reposition();
    ShowWindow(hwnd_, SW_SHOW);
    InvalidateRect(hwnd_, nullptr, TRUE);
    UpdateWindow(hwnd_);
    SetForegroundWindow(hwnd_);
    CheckShownKey();
    if (refreshTimer_ == 0) {
        refreshTimer_ = SetTimer(hwnd_, kRefreshTimerId, kRefreshPeriodMs, nullptr);
    }
}

void ConfigPopup::Hide() {
    SaveToRegistry();
    ShowWindow(hwnd_, SW_HIDE);
    StopAnimation();
    StopTimer(refreshTimer_);
}

void ConfigPopup::Reposition() const {
    RECT overlay{};
    RECT popup{};
    GetWindowRect(parent_, &overlay);
    GetWindowRect(hwnd_, &popup);
    MONITORINFO monitor{};
    monitor.cbSize = sizeof monitor;
    GetMonitorInfoW(MonitorFromWindow(parent_, MONITOR_DEFAULTTONEAREST), &monitor);
    const POINT corner =
        PlacePopup(overlay, {popup.right - popup.left, popup.bottom - popup.top}, monitor.rcWork);
    SetWindowPos(hwnd_, HWND_TOPMOST, corner.x, corner.y, 0, 0, SWP_NOSIZE | SWP_NOACTIVATE);
}

void ConfigPopup::SetRunning(bool running) {
    running_ = running;
    SetWindowTextW(start_, running ? kRunningText : kStartText);
    for (const Control& control : Controls::kRows) {
        if (control.list != nullptr) {
            (this->*control.list)->SetEnabled(!running);
        } else if (control.window != nullptr) {
            EnableWindow(this->*control.window, !running);
        }
    }
    InvalidateRect(start_, nullptr, FALSE);
}

ConfigData ConfigPopup::BuildConfig() const {
    ConfigData config;
    config.access_key = KeyText(kStoredKeyRoom);
    if (const LanguageEntry* language = Chosen(*langAList_, kLanguageSources)) {
        config.lang_a = language->code;
    }
    if (const LanguageEntry* language = Chosen(*langBList_, kLanguageSources)) {
        config.lang_b = language->code;
    }
    config.lang_a_tgt = ResolveTargetCode(config.lang_a);
    config.lang_b_tgt = ResolveTargetCode(config.lang_b);
    if (const AudioDeviceInfo* device = Chosen(*micList_, micDevices_)) {
        config.mic_device = *device;
    }
    if (const AudioDeviceInfo* device = Chosen(*loopbackList_, loopbackDevices_)) {
        config.loopback_device = *device;
    }
    return config;
}

// The field's text, cut to what `room` characters hold with the terminator.
WideString ConfigPopup::KeyText(std::size_t room) const {
    WideString text(room, WCHAR{0});
    const int length = GetWindowTextW(keyEdit_, text.data(), static_cast<int>(room));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

// ---- The store ----------------------------------------------------------------------------------

void ConfigPopup::LoadFromRegistry() {
    SetWindowTextW(keyEdit_, ReadStoredText(*configKeyRef_, stored::kAccessKey).c_str());
    langAList_->selected_ = StoredRow(*configKeyRef_, stored::kLanguageA, kDefaultLanguageA);
    langBList_->selected_ = StoredRow(*configKeyRef_, stored::kLanguageB, kDefaultLanguageB);
    FillMicList();
    FillLoopbackList();
    if (KeyText(kCheckedKeyRoom).empty()) {
        SetKeyStatus({.status = KeyStatusNone});
    }
}

void ConfigPopup::SaveToRegistry() const {
    HKEY key = *configKeyRef_;
    WriteStoredText(key, stored::kAccessKey, KeyText(kStoredKeyRoom));
    WriteStoredNumber(key, stored::kLanguageA, static_cast<DWORD>(langAList_->selected_));
    WriteStoredNumber(key, stored::kLanguageB, static_cast<DWORD>(langBList_->selected_));
    StoreDevice(key, stored::kMicrophone, Chosen(*micList_, micDevices_), micChosen_);
    StoreDevice(key, stored::kLoopback, Chosen(*loopbackList_, loopbackDevices_), loopbackChosen_);
}

// ---- Messages -----------------------------------------------------------------------------------

LRESULT CALLBACK ConfigPopup::WindowProcedure(HWND hwnd, UINT message, WPARAM wParam,
                                              LPARAM lParam) {
    auto* const popup = ObjectOf<ConfigPopup>(hwnd, message, lParam);
    if (popup == nullptr) {
        return DefWindowProcW(hwnd, message, wParam, lParam);
    }
    popup->hwnd_ = hwnd;
    return popup->HandleMessage(message, wParam, lParam);
}

LRESULT ConfigPopup::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_PAINT:
        PaintPopup();
        return 0;
    case WM_DESTROY:
        OnDestroy();
        return 0;
    case WM_CLOSE:
        SaveToRegistry();
        ShowWindow(hwnd_, SW_HIDE);
        return 0;
    case WM_ERASEBKGND:
        EraseBackground(reinterpret_cast<HDC>(wParam));
        return 1;
    case WM_DRAWITEM:
        return OnDrawItem(*reinterpret_cast<const DRAWITEMSTRUCT*>(lParam));
    case WM_COMMAND:
        OnCommand(LOWORD(wParam), HIWORD(wParam));
        return 0;
    case WM_TIMER:
        OnTimer(wParam);
        return 0;
    case WM_CTLCOLOREDIT:
        return ColourControl(wParam, theme::ForGdi(theme::kBrightText),
                             theme::ForGdi(theme::kField), editBrush_);
    case WM_CTLCOLORBTN:
        return reinterpret_cast<LRESULT>(GetStockObject(NULL_BRUSH));
    case WM_CTLCOLORSTATIC:
        return ColourControl(wParam, kLabelText, theme::ForGdi(theme::kSurface), staticBrush_);
    case WM_MOUSEMOVE:
        OnMouseMove(PointOf(lParam));
        return 0;
    case WM_MOUSELEAVE:
        OnMouseLeave();
        return 0;
    case kMsgKeyStatus:
        OnKeyStatus(lParam);
        return 0;
    case kMsgKeyCheckEnded:
        OnKeyCheckEnded();
        return 0;
    default:
        return DefWindowProcW(hwnd_, message, wParam, lParam);
    }
}

void ConfigPopup::EraseBackground(HDC dc) const {
    RECT client{};
    GetClientRect(hwnd_, &client);
    const GdiBrushOwner brush(CreateSolidBrush(theme::ForGdi(theme::kSurface)));
    FillRect(dc, &client, brush.get());
}

LRESULT ConfigPopup::OnDrawItem(const DRAWITEMSTRUCT& item) const {
    const bool isList = langAList_->DrawItem(item) || langBList_->DrawItem(item) ||
                        micList_->DrawItem(item) || loopbackList_->DrawItem(item);
    if (!isList) {
        PaintButton(item);
    }
    return 1;
}

void ConfigPopup::OnCommand(int id, int notification) {
    switch (id) {
    case kRefreshMicId:
        FillMicList();
        break;
    case kRefreshLoopbackId:
        FillLoopbackList();
        break;
    case kStartButtonId:
        OnStartButton();
        break;
    case kKeyEditId:
        if (notification == EN_CHANGE) {
            OnKeyEdited();
        }
        break;
    case kMicListId:
        micChosen_ = micChosen_ || notification == CBN_SELCHANGE;
        break;
    case kLoopbackListId:
        loopbackChosen_ = loopbackChosen_ || notification == CBN_SELCHANGE;
        break;
    default: // a choice in a list stays there until it is read
        break;
    }
}

void ConfigPopup::OnStartButton() {
    SaveToRegistry();
    if (onStart_) {
        onStart_(BuildConfig());
    }
}

void ConfigPopup::OnTimer(UINT_PTR id) {
    switch (id) {
    case kDebounceTimerId:
        OnDebounceTimer();
        break;
    case kAnimationTimerId:
        OnAnimationTimer();
        break;
    case kRefreshTimerId:
        OnRefreshTimer();
        break;
    default:
        break;
    }
}

void ConfigPopup::StopTimer(UINT_PTR& timer) const {
    if (timer != 0) {
        KillTimer(hwnd_, timer);
        timer = 0;
    }
}

// Selecting all is not everywhere a habit of the field itself.
LRESULT CALLBACK ConfigPopup::EditProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam,
                                            UINT_PTR id, DWORD_PTR /*reference*/) {
    if (message == WM_KEYDOWN && wParam == 'A' && GetKeyState(VK_CONTROL) < 0) {
        SendMessageW(window, EM_SETSEL, 0, -1);
        return 0;
    }
    if (message == WM_CHAR && wParam == kSelectAllCharacter) {
        return 0;
    }
    if (message == WM_DESTROY) {
        RemoveWindowSubclass(window, EditProcedure, id);
    }
    return DefSubclassProc(window, message, wParam, lParam);
}

// ---- The pointer --------------------------------------------------------------------------------

LRESULT CALLBACK ConfigPopup::RefreshProcedure(HWND window, UINT message, WPARAM wParam,
                                               LPARAM lParam, UINT_PTR id, DWORD_PTR popup) {
    if (message == WM_DESTROY) {
        RemoveWindowSubclass(window, RefreshProcedure, id);
    } else if (reinterpret_cast<ConfigPopup*>(popup)->HandleRefresh(window, static_cast<int>(id),
                                                                    message)) {
        return 0;
    }
    return DefSubclassProc(window, message, wParam, lParam);
}

bool ConfigPopup::HandleRefresh(HWND button, int id, UINT message) {
    switch (message) {
    case WM_MOUSEMOVE:
        TrackLeave(button);
        SetHover(id);
        return true;
    case WM_MOUSELEAVE:
        trackingMouse_ = false;
        if (hoverId_ == id) {
            SetHover(0);
        }
        return true;
    default:
        return false;
    }
}

void ConfigPopup::TrackLeave(HWND window) {
    if (!trackingMouse_) {
        TRACKMOUSEEVENT tracking{sizeof tracking, TME_LEAVE, window, 0};
        TrackMouseEvent(&tracking);
        trackingMouse_ = true;
    }
}

void ConfigPopup::OnMouseMove(POINT point) {
    TrackLeave(hwnd_);
    ClientToScreen(hwnd_, &point);
    HWND under = WindowFromPoint(point);
    const int id = under != nullptr && under != hwnd_ ? GetDlgCtrlID(under) : 0;
    const Control* control = FindControl(id);
    SetHover(control != nullptr && control->look != nullptr ? id : 0);
}

void ConfigPopup::OnMouseLeave() {
    trackingMouse_ = false;
    SetHover(0);
}

void ConfigPopup::SetHover(int id) {
    if (id == hoverId_) {
        return;
    }
    InvalidateControl(std::exchange(hoverId_, id));
    InvalidateControl(id);
}

void ConfigPopup::InvalidateControl(int id) const {
    if (id != 0) {
        InvalidateRect(GetDlgItem(hwnd_, id), nullptr, FALSE);
    }
}

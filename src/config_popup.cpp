// The settings popup as a window: its controls, the messages that it gets, and what it stores.
#include "config_popup.h"

#include "config_popup_ids.h"
#include "config_popup_layout.h"
#include "dpi.h"
#include "popup_colours.h"
#include "stored_values.h"
#include "window_messages.h"
#include "windows_additions.h"

#include <commctrl.h>

#include <utility>

namespace {

constexpr const WCHAR* kPopupClass = TEXT("KelvarinConfigPopup");
constexpr COLORREF kClassColour = 0x010101;
constexpr int kFirstHeight = 100; // until the controls tell how much they need

constexpr COLORREF kLabelText = RGB(0xAA, 0xAA, 0xCC);

constexpr DWORD kDefaultRowA = 0; // "zh-CN"
constexpr DWORD kDefaultRowB = 2; // "en-US"

constexpr const WCHAR* kStartText = TEXT("▶   Start Translation");
constexpr const WCHAR* kRunningText = TEXT("⏹   Translating…");

constexpr const WCHAR* kTextFace = TEXT("Microsoft YaHei UI");
constexpr const WCHAR* kIconFace = TEXT("Segoe MDL2 Assets");

constexpr WCHAR kSelectAllCharacter = 1; // what Ctrl+A types

GdiFontOwner MakeGdiFont(const WCHAR* face, int size, int weight) {
    return GdiFontOwner(CreateFontW(-S(size), 0, 0, 0, weight, 0, 0, 0, DEFAULT_CHARSET, 0, 0,
                                    CLEARTYPE_QUALITY, 0, face));
}

// Makes the controls of one window.
class ControlBuilder {
public:
    explicit ControlBuilder(HWND parent) : parent_(parent) {}

    HWND Make(const WCHAR* windowClass, const WCHAR* text, DWORD style, const ControlBox& box,
              int id, HFONT font) const {
        HWND control = CreateWindowExW(0, windowClass, text, WS_CHILD | WS_VISIBLE | style, box.x,
                                       box.y, box.w, box.h, parent_,
                                       reinterpret_cast<HMENU>(static_cast<std::intptr_t>(id)),
                                       GetModuleHandleW(nullptr), nullptr);
        SendMessageW(control, WM_SETFONT, reinterpret_cast<WPARAM>(font), TRUE);
        return control;
    }
    void Label(const WCHAR* text, const ControlBox& box, HFONT font, DWORD style = 0) const {
        Make(TEXT("STATIC"), text, style, box, 0, font);
    }
    HWND Button(const WCHAR* text, const ControlBox& box, int id, HFONT font) const {
        return Make(TEXT("BUTTON"), text, BS_OWNERDRAW, box, id, font);
    }
    std::unique_ptr<DropList> List(const ControlBox& box, int id, HFONT font) const {
        auto list = std::make_unique<DropList>(parent_, box.x, box.y, box.w, box.h, id);
        list->SetFont(font);
        return list;
    }

private:
    HWND parent_;
};

// A row of the language table, or -1 for none.
int StoredRow(HKEY key, const WCHAR* name, DWORD fallback) {
    const DWORD row = ReadStoredNumber(key, name, fallback);
    return row < kLanguageSources.size() ? static_cast<int>(row) : -1;
}

// Stores what the user has chosen. What the list shows for want of the saved device is not stored:
// that one may come back.
void StoreDevice(HKEY key, const WCHAR* name, const AudioDeviceInfo* device, bool byUser) {
    if (device != nullptr && (byUser || ReadStoredText(key, name).empty())) {
        WriteStoredText(key, name, device->name);
    }
}

// Colours of a control that the system paints, and what is behind its text.
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
    RegisterWindowClass();
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

void ConfigPopup::RegisterWindowClass() const {
    static bool registered = false;
    if (registered) {
        return;
    }
    registered = true;
    WNDCLASSEXW popup{};
    popup.cbSize = sizeof popup;
    popup.lpfnWndProc = WindowProcedure;
    popup.hInstance = GetModuleHandleW(nullptr);
    popup.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    popup.hbrBackground = CreateSolidBrush(kClassColour);
    popup.lpszClassName = kPopupClass;
    RegisterClassExW(&popup);
}

void ConfigPopup::CreatePopup() {
    CreateWindowExW(WS_EX_TOPMOST | WS_EX_TOOLWINDOW, kPopupClass, TEXT("Config"), WS_POPUP, 0, 0,
                    S(kPopupWidth), kFirstHeight, parent_, nullptr, GetModuleHandleW(nullptr),
                    this);
    DwmSetWindowAttribute(hwnd_, kWindowCornerPreference, &kRoundCorners, sizeof kRoundCorners);
}

void ConfigPopup::CreateFonts() {
    labelFont_ = MakeGdiFont(kTextFace, 10, 400);
    bodyFont_ = MakeGdiFont(kTextFace, 12, 400);
    boldFont_ = MakeGdiFont(kTextFace, 12, 600);
    iconFont_ = MakeGdiFont(kIconFace, 13, 400);
    bigIconFont_ = MakeGdiFont(kIconFace, 17, 400);
}

void ConfigPopup::BuildControls() {
    CreateFonts();
    const PopupLayout layout = LayOutPopup(DpiScale);
    keyRowY_ = layout.keyRowY;
    statusRowY_ = layout.statusRowY;
    HFONT label = labelFont_.get();
    HFONT body = bodyFont_.get();
    HFONT icon = iconFont_.get();

    const ControlBuilder build(hwnd_);
    build.Label(TEXT("Access Key"), layout.keyLabel, label);
    keyEdit_ = build.Make(TEXT("EDIT"), TEXT(""), ES_PASSWORD | ES_AUTOHSCROLL, layout.keyEdit,
                          kKeyEditId, body);
    SetWindowSubclass(keyEdit_, EditProcedure, kKeyEditId, 0);
    build.Label(TEXT("Language A"), layout.langALabel, label);
    build.Label(TEXT("Language B"), layout.langBLabel, label);
    langAList_ = build.List(layout.langAList, kLangAListId, body);
    langBList_ = build.List(layout.langBList, kLangBListId, body);
    build.Label(TEXT("⇄"), layout.swapGlyph, bigIconFont_.get(), SS_CENTER);

    build.Label(TEXT("\uE720"), layout.micIcon, icon);
    build.Label(TEXT("Microphone Device"), layout.micLabel, label);
    micList_ = build.List(layout.micList, kMicListId, body);
    refreshMic_ = build.Button(TEXT("\uE72C"), layout.refreshMic, kRefreshMicId, icon);
    build.Label(TEXT("\uE767"), layout.loopbackIcon, icon);
    build.Label(TEXT("System Audio Device"), layout.loopbackLabel, label);
    loopbackList_ = build.List(layout.loopbackList, kLoopbackListId, body);
    refreshLoopback_ =
        build.Button(TEXT("\uE72C"), layout.refreshLoopback, kRefreshLoopbackId, icon);
    for (const auto& [button, id] :
         {std::pair{refreshMic_, kRefreshMicId}, std::pair{refreshLoopback_, kRefreshLoopbackId}}) {
        SetWindowSubclass(button, RefreshProcedure, static_cast<UINT_PTR>(id),
                          reinterpret_cast<DWORD_PTR>(this));
    }
    start_ = build.Button(kStartText, layout.start, kStartButtonId, boldFont_.get());

    AddLanguages();
    SetWindowPos(hwnd_, nullptr, 0, 0, layout.width, layout.height, SWP_NOMOVE | SWP_NOZORDER);
    FillMicList();
    FillLoopbackList();
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
    EnableWindow(start_, !running);
    InvalidateRect(start_, nullptr, FALSE);
    micList_->SetEnabled(!running);
    EnableWindow(refreshMic_, !running);
    loopbackList_->SetEnabled(!running);
    EnableWindow(refreshLoopback_, !running);
    EnableWindow(keyEdit_, !running);
    langAList_->SetEnabled(!running);
    langBList_->SetEnabled(!running);
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
    SetWindowTextW(keyEdit_, ReadStoredText(*configKeyRef_, TEXT("access_key")).c_str());
    langAList_->selected_ = StoredRow(*configKeyRef_, TEXT("lang_a"), kDefaultRowA);
    langBList_->selected_ = StoredRow(*configKeyRef_, TEXT("lang_b"), kDefaultRowB);
    FillMicList();
    FillLoopbackList();
    if (KeyText(kCheckedKeyRoom).empty()) {
        SetKeyStatus({.status = KeyStatusNone});
    }
}

void ConfigPopup::SaveToRegistry() const {
    HKEY key = *configKeyRef_;
    WriteStoredText(key, TEXT("access_key"), KeyText(kStoredKeyRoom));
    WriteStoredNumber(key, TEXT("lang_a"), static_cast<DWORD>(langAList_->selected_));
    WriteStoredNumber(key, TEXT("lang_b"), static_cast<DWORD>(langBList_->selected_));
    StoreDevice(key, TEXT("mic_device_name"), Chosen(*micList_, micDevices_), micChosen_);
    StoreDevice(key, TEXT("loopback_device_name"), Chosen(*loopbackList_, loopbackDevices_),
                loopbackChosen_);
}

// ---- Messages -----------------------------------------------------------------------------------

LRESULT CALLBACK ConfigPopup::WindowProcedure(HWND hwnd, UINT message, WPARAM wParam,
                                              LPARAM lParam) {
    ConfigPopup* popup = nullptr;
    if (message == WM_NCCREATE) {
        const auto* creation = reinterpret_cast<const CREATESTRUCTW*>(lParam);
        popup = static_cast<ConfigPopup*>(creation->lpCreateParams);
        SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(popup));
        popup->hwnd_ = hwnd;
    } else {
        popup = reinterpret_cast<ConfigPopup*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    }
    return popup != nullptr ? popup->HandleMessage(message, wParam, lParam)
                            : DefWindowProcW(hwnd, message, wParam, lParam);
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
        return ColourControl(wParam, GdiColour(kTitleColour), GdiColour(kFieldColour), editBrush_);
    case WM_CTLCOLORBTN:
        return reinterpret_cast<LRESULT>(GetStockObject(NULL_BRUSH));
    case WM_CTLCOLORSTATIC:
        return ColourControl(wParam, kLabelText, GdiColour(kSurfaceColour), staticBrush_);
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
    const GdiBrushOwner brush(CreateSolidBrush(GdiColour(kSurfaceColour)));
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
    const bool isButton = id == kRefreshMicId || id == kRefreshLoopbackId || id == kStartButtonId;
    SetHover(isButton ? id : 0);
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

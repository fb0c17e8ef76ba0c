#include "overlay_probe.h"

#include "dpi.h"
#include "owner.h"
#include "popup_probe.h"
#include "stored_values.h"
#include "test_picture.h"

#include <knownfolders.h>
#include <shlobj.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

namespace {

void Store(const StoredSettings& settings) {
    HKEY key = nullptr;
    RegCreateKeyExW(HKEY_CURRENT_USER, TEXT("Software\\Kelvarin\\Config"), 0, nullptr, 0,
                    KEY_ALL_ACCESS, nullptr, &key, nullptr);
    WriteStoredText(key, TEXT("access_key"), settings.accessKey);
    WriteStoredNumber(key, TEXT("use_mic"), settings.useMic ? 1 : 0);
    WriteStoredNumber(key, TEXT("use_loopback"), settings.useLoopback ? 1 : 0);
    WriteStoredNumber(key, TEXT("window_height"), static_cast<DWORD>(settings.windowHeight));
    WriteStoredNumber(key, TEXT("lang_a"), 2); // en-US
    WriteStoredNumber(key, TEXT("lang_b"), 0); // zh-CN
    RegCloseKey(key);
}

LPARAM Point(int x, int y) {
    return MAKELPARAM(x, y);
}

} // namespace

OverlayProbe::OverlayProbe(const StoredSettings& settings) {
    Store(settings);
    overlay_ = std::make_unique<OverlayWindow>();
    overlay_->RegisterWindowClass();
    overlay_->CreateOverlay();
    overlay_->OnTimer();            // without its delay
    overlay_->mouseTracked_ = true; // the real pointer is elsewhere, and would be seen leaving
    Pump();
}

OverlayProbe::~OverlayProbe() {
    Exit();
}

void OverlayProbe::Exit() {
    if (overlay_ != nullptr) {
        overlay_->Exit();
        Pump();
        const auto waitForChecks = PopupProbe::WaitForChecksOf(*overlay_->popup_);
        overlay_.reset();
        waitForChecks();
    }
}

void OverlayProbe::Pump(int most) {
    MSG message;
    while (most-- > 0 && PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != FALSE) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

bool OverlayProbe::PumpUntil(const std::function<bool()>& condition,
                             std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (Pump(); !condition(); Pump()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // its threads go on meanwhile
    }
    return true;
}

RECT OverlayProbe::Bounds() const {
    RECT bounds;
    GetWindowRect(overlay_->hwnd_, &bounds);
    return bounds;
}

LRESULT OverlayProbe::Send(UINT message, WPARAM wParam, LPARAM lParam) {
    return SendMessageW(overlay_->hwnd_, message, wParam, lParam);
}

void OverlayProbe::Move(int x, int y, bool held) {
    Send(WM_MOUSEMOVE, held ? MK_LBUTTON : 0, Point(x, y));
}
void OverlayProbe::Press(int x, int y) {
    Send(WM_LBUTTONDOWN, MK_LBUTTON, Point(x, y));
}
void OverlayProbe::Release(int x, int y) {
    Send(WM_LBUTTONUP, 0, Point(x, y));
}
void OverlayProbe::Drag(int x, int fromY, int toY) {
    Press(x, fromY);
    Move(x, toY, true);
    Release(x, toY);
}

ToolbarRect OverlayProbe::Button(int id) const {
    const auto& rects = overlay_->buttonRects_;
    const auto found =
        std::find_if(rects.begin(), rects.end(), [id](const ToolbarRect& r) { return r.id == id; });
    return found != rects.end() ? *found : ToolbarRect{};
}

void OverlayProbe::Result(const std::string& original, const std::string& translated,
                          bool isFinal) {
    TranslationResult result;
    result.original = Utf8ToWide(original);
    result.translated = Utf8ToWide(translated);
    result.isFinal = isFinal;
    PostResult(Window(), result);
    Pump();
}

void OverlayProbe::Error(const std::string& raw) {
    overlay_->OnTranslationError(Utf8ToWide(raw));
}

void OverlayProbe::Fill(std::size_t count, const WideString& original,
                        const WideString& translated) {
    for (std::size_t i = 0; i < count; ++i) {
        overlay_->AddFinalCaption(original, translated);
    }
}

RECT OverlayProbe::CaptionArea() const {
    return {0, overlay_->captionTop_, 0, overlay_->captionTop_ + overlay_->captionHeight_};
}
RECT OverlayProbe::Thumb() const {
    const auto top = static_cast<int>(overlay_->thumbTop_);
    return {overlay_->scrollHitX_, top, 0, top + static_cast<int>(overlay_->thumbHeight_)};
}
RECT OverlayProbe::Track() const {
    const auto top = static_cast<int>(overlay_->trackTop_);
    return {overlay_->scrollHitX_, top, 0, top + static_cast<int>(overlay_->trackHeight_)};
}

std::vector<std::uint32_t> OverlayProbe::Paint() {
    RECT client;
    GetClientRect(overlay_->hwnd_, &client);
    const TestPicture picture(client.right, client.bottom);
    overlay_->PaintOverlay(picture.Graphics(), client.right, client.bottom);
    return {picture.Pixels(),
            picture.Pixels() + std::size_t(client.right) * std::size_t(client.bottom)};
}

std::uint32_t OverlayProbe::PixelAt(int x, int y) {
    const auto width = static_cast<std::size_t>(Bounds().right - Bounds().left);
    return Paint()[static_cast<std::size_t>(y) * width + static_cast<std::size_t>(x)];
}

std::filesystem::path TranscriptFolder() {
    CoTaskMemory<WCHAR> desktop;
    SHGetKnownFolderPath(FOLDERID_Desktop, 0, nullptr, desktop.Receive());
    WideString path = desktop.get() + WideString(TEXT("/Kelvarin（记录）"));
    std::replace(path.begin(), path.end(), WCHAR{'\\'}, WCHAR{'/'}); // for every system
    return path;
}

std::vector<std::string> TranscriptNames() {
    std::vector<std::string> names;
    std::error_code absent;
    for (const auto& entry : std::filesystem::directory_iterator(TranscriptFolder(), absent)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string TranscriptText(const std::string& name) {
    std::ifstream file(TranscriptFolder() / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void RemoveTranscripts() {
    std::error_code ignored;
    std::filesystem::remove_all(TranscriptFolder(), ignored);
}

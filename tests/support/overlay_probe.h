// An overlay under test: a real window whose messages a test serves itself, with stored settings of
// the test's own, and a view of its state.
#pragma once

#include "overlay_window.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

// Settings as they stand in the store when the overlay starts.
struct StoredSettings {
    WideString accessKey = TEXT("key-1");
    bool useMic = true;
    bool useLoopback = false;
    int windowHeight = 0;
};

class OverlayProbe {
public:
    explicit OverlayProbe(const StoredSettings& settings = {});
    // Closes the overlay as its tray menu does, if that has not been done.
    ~OverlayProbe();
    OverlayProbe(const OverlayProbe&) = delete;
    OverlayProbe& operator=(const OverlayProbe&) = delete;

    // Serves the messages that wait now, at most `most` of them.
    void Pump(int most = 1000000);
    // Serves messages until the condition holds; false after `limit`.
    bool PumpUntil(const std::function<bool()>& condition,
                   std::chrono::milliseconds limit = std::chrono::seconds(20));

    HWND Window() const { return overlay_->hwnd_; }
    HWND Tooltip() const { return overlay_->tooltip_.get(); }
    RECT Bounds() const;
    TrayIcon& Tray() { return *overlay_->tray_; }
    LRESULT Send(UINT message, WPARAM wParam = 0, LPARAM lParam = 0);
    // The pointer, in client coordinates.
    void Move(int x, int y, bool held = false);
    void Press(int x, int y);
    void Release(int x, int y);
    void Drag(int x, int fromY, int toY);
    // A toolbar command, as a click on its button gives it.
    void Command(int id) { overlay_->OnToolbarCommand(id); }
    ToolbarRect Button(int id) const;
    int HoveredButton() const { return overlay_->hoverButton_; }

    // A result of the service, as its thread would post it.
    void Result(const std::string& original, const std::string& translated, bool isFinal = true);
    void Error(const std::string& raw);
    // So many final captions at once, which no service sends.
    void Fill(std::size_t count, const WideString& original, const WideString& translated);

    std::string Status() const { return WideToUtf8(overlay_->status_); }
    bool StatusIsError() const { return overlay_->statusIsError_; }
    bool IsRunning() const { return overlay_->isRunning_; }
    bool Lit() const { return overlay_->liveIndicator_; }
    bool UsesMic() const { return overlay_->useMic_; }
    bool UsesLoopback() const { return overlay_->useLoopback_; }
    bool PopupVisible() const { return overlay_->popup_->IsVisible(); }
    // Null before the first run. Lives as long as any thread of the run does.
    std::weak_ptr<TranslationRun> CurrentRun() const { return overlay_->run_; }
    std::vector<CaptionEntry> Captions() const { return overlay_->captions_; }

    int Scroll() const { return overlay_->scrollOffset_; }
    int MaxScroll() const { return overlay_->MaxScrollOffset(); }
    bool ScrolledUp() const { return overlay_->scrolledUp_; }
    float ContentHeight() const { return overlay_->contentHeight_; }
    RECT CaptionArea() const;
    // The thumb and the track, from top to bottom; left is where the pointer's zone begins.
    RECT Thumb() const;
    RECT Track() const;

    // Paints the overlay as it stands and reads a pixel of it, premultiplied ARGB, for each point.
    std::vector<std::uint32_t> Paint();
    std::uint32_t PixelAt(int x, int y);

    // Exits and destroys the overlay.
    void Exit();

private:
    std::unique_ptr<OverlayWindow> overlay_;
};

// The folder of the transcripts on the desktop of the tests, and what is in it, oldest first.
std::filesystem::path TranscriptFolder();
std::vector<std::string> TranscriptNames();
std::string TranscriptText(const std::string& name);
void RemoveTranscripts();

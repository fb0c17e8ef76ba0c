// The overlay: the program's main window and the owner of everything that outlives a run. Its parts
// by topic: overlay_window.cpp life and messages, overlay_control.cpp runs, overlay_captions.cpp
// captions and the service's words, overlay_render.cpp the picture, overlay_input.cpp the pointer,
// overlay_toolbar.cpp the buttons.
#pragma once

#include "captions.h"
#include "config_popup.h"
#include "drawing.h"
#include "owner.h"
#include "toolbar.h"
#include "transcript.h"
#include "translation_run.h"
#include "tray_icon.h"
#include "wide_text.h"

#include <windows.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

inline constexpr int kOverlayWidth = 380;          // at 96 DPI; no action of the user changes it
inline constexpr int kSmallestOverlayHeight = 420; // at 96 DPI
inline constexpr int kHeaderHeight = 40;           // at 96 DPI

// The status line's words for a raw failure text.
WideString MapServiceError(const WideString& raw);

// Constructed, run and destroyed on the UI thread, which is the one that may touch it. Other
// threads reach it by the messages of translation_run.h alone.
class OverlayWindow {
public:
    OverlayWindow();
    ~OverlayWindow();
    OverlayWindow(const OverlayWindow&) = delete;
    OverlayWindow& operator=(const OverlayWindow&) = delete;

    // Shows the overlay and serves its messages until it is closed. The exit value; 1 when there
    // could be no window.
    int Run();

private:
    friend class OverlayProbe; // what the tests look at and press
    friend std::vector<ToolbarEntry> ToolbarEntries(bool running);
    friend const WCHAR* ToolbarTooltip(int id);

    // Life and messages.
    static LRESULT CALLBACK WindowProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam);
    void RegisterWindowClass() const;
    bool CreateOverlay();
    void OnCreate();
    void CreateTooltip();
    void OnTimer();
    void OnPaint();
    void EraseBackground(HDC dc) const;
    bool ShowResizeCursor() const;
    void OnMouseLeave();
    void OnDpiChanged(const RECT& suggested);
    void OnTray(LPARAM event);
    void OnDestroy();
    void Repaint() const;
    void RepaintToolbar() const;
    void HideOverlay();
    void ToggleOverlay();
    void SetClickThrough(bool clickThrough);
    void SetAllowRecording(bool allow);
    void Exit();
    void ApplyCaptureExclusion() const;
    void SetTransparentToInput(bool transparent) const;

    // Runs.
    void StartTranslation();
    void StopTranslation();
    void RestartTranslation();
    SourceChoice ChosenSources(const ConfigData& config) const;
    void OnSources(UINT number, bool open);
    void ShowSourceStatus();
    void ToggleSource(bool& source, const WCHAR* storedName);
    void OnTranslationStarted();
    void OnTranslationStopped();
    void OnTranslationError(const WideString& raw);
    void SetLiveIndicator(bool lit);

    // Captions and the status line.
    void OnResults(WPARAM written, LPARAM first);
    void OnResult(const TranslationResult& result, bool written);
    void AddPendingCaption(const WideString& original, const WideString& translated);
    void AddFinalCaption(const WideString& original, const WideString& translated);
    void PutCaption(const WideString& original, const WideString& translated, bool pending);
    void ClearCaptions();
    void SetStatus(const WideString& text, bool isError);

    // The picture.
    void RenderOverlay(int width, int height);
    void PaintOverlay(Gdiplus::GpGraphics* graphics, int width, int height);
    void DrawHeader(Gdiplus::GpGraphics* graphics, int width);
    void DrawStatusLine(Gdiplus::GpGraphics* graphics, int width);
    void DrawCaptions(Gdiplus::GpGraphics* graphics, int width, int height, int headerHeight);
    void MeasureCards(Gdiplus::GpGraphics* graphics, int cardWidth);
    void DrawCards(Gdiplus::GpGraphics* graphics, const RECT& area);
    void DrawScrollBar(Gdiplus::GpGraphics* graphics, int width);
    void FollowNewest();
    void ScrollTo(int offset);
    int MaxScrollOffset() const;

    // The toolbar.
    struct ToolbarRow;
    struct Toolbar;
    bool IsLit(int id) const;
    void OnToolbarCommand(int id);
    void ToggleSettings();
    void ToggleMicrophone();
    void ToggleLoopback();
    void ToggleTranslation();

    // The pointer.
    void OnLeftButtonDown(int x, int y);
    void OnLeftButtonUp();
    void OnMouseMove(int x, int y, WPARAM keys);
    void OnMouseWheel(int delta);
    void OnCaptureChanged();
    bool PressScrollBar(int x, int y);
    void DragResize(int y);
    void DragThumb(int y);
    void DragWindow(int x, int y);
    void Hover(int x, int y);
    int HitTestToolbar(int x, int y) const;
    bool IsOnResizeEdge(int y) const;
    void ShowTooltip(int id);
    void PaintTooltip(const WCHAR* text, int width, int height) const;

    HWND hwnd_ = nullptr;
    HINSTANCE hInstance_;
    RegistryKey configKey_;
    std::vector<CaptionEntry> captions_; // oldest first
    std::mutex captionsMutex_;           // guards captions_
    CardHeights cardHeights_;            // of captions_
    // Also every run's: its thread writes what it has before it asks the service for more.
    const std::shared_ptr<Transcript> transcript_ = std::make_shared<Transcript>();
    std::unique_ptr<ConfigPopup> popup_;
    std::unique_ptr<TrayIcon> tray_;

    // The current or the last run.
    std::shared_ptr<AzureTranslator> translator_;
    std::shared_ptr<TranslationRun> run_;
    SourceChoice sources_;   // what the run was asked to listen to, last
    std::thread worker_;     // never joined: it may wait for the network
    bool isRunning_ = false; // from kMsgStarted to kMsgStopped or kMsgError
    bool useMic_ = true;
    bool useLoopback_ = false;
    bool sourceLost_ = false; // of sources_: one could not be opened, or has ended

    bool clickThrough_ = false;      // pointer input passes through; not stored
    bool excludeFromCapture_ = true; // stays out of screen recordings; not stored
    bool dragging_ = false;          // the window moves with the pointer
    POINT dragOffset_{0, 0};         // the pointer in the window when that began
    WideString status_;              // the status line; empty means none
    bool statusIsError_ = false;
    bool liveIndicator_ = false; // the green dot
    int scrollOffset_ = 0;       // pixels that the caption area is scrolled down
    bool scrolledUp_ = false;    // the view has left the newest caption
    WideString lastError_;       // words of the last failure; cleared by a start
    int windowHeight_ = 420;     // pixels

    // Geometry in pixels of the client area, written by painting, read by pointer input.
    int statusHeight_ = 0;    // of the status line; 0 without one
    float contentHeight_ = 0; // of all captions
    int captionTop_ = 0;
    int captionHeight_ = 0; // of the part that is seen
    float thumbTop_ = 0;
    float thumbHeight_ = 0;
    float trackTop_ = 0;
    float trackHeight_ = 0;
    int scrollHitX_ = 0; // left edge of the scroll bar's pointer zone

    bool thumbDragging_ = false;
    int thumbDragStartY_ = 0;
    int thumbDragStartOffset_ = 0;
    bool resizing_ = false;
    int resizeStartY_ = 0;
    int resizeStartHeight_ = 0;
    int hoverButton_ = kNoButton;
    int pressedButton_ = kNoButton;
    bool mouseTracked_ = false; // WM_MOUSELEAVE has been asked for
    WindowOwner tooltip_;
    bool newLogPending_ = true;            // the next start opens a new transcript
    bool showTranslation_ = true;          // not stored
    std::vector<ToolbarRect> buttonRects_; // of the last paint
    std::unique_ptr<GdiplusSession> gdiplus_;
};

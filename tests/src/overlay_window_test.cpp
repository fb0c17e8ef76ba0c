#include "dpi.h"
#include "overlay_probe.h"
#include "stored_values.h"

#include <gtest/gtest.h>

namespace {

DWORD Stored(const WCHAR* name) {
    HKEY key = nullptr;
    RegCreateKeyExW(HKEY_CURRENT_USER, TEXT("Software\\Kelvarin\\Config"), 0, nullptr, 0,
                    KEY_ALL_ACCESS, nullptr, &key, nullptr);
    const DWORD value = ReadStoredNumber(key, name, 12345);
    RegCloseKey(key);
    return value;
}

LONG HeightOf(const RECT& bounds) {
    return bounds.bottom - bounds.top;
}

// ---- Size, place and visibility ----------------------------------------------------------------

struct HeightCase {
    int stored;
    int height;
};
void PrintTo(const HeightCase& height, std::ostream* out) {
    *out << height.stored;
}
class OverlayHeight : public testing::TestWithParam<HeightCase> {};
TEST_P(OverlayHeight, IsTheStoredOneButNeverTooLittle) {
    StoredSettings settings;
    settings.windowHeight = GetParam().stored;
    const OverlayProbe overlay(settings);
    const RECT bounds = overlay.Bounds();
    EXPECT_EQ(HeightOf(bounds), GetParam().height);
    EXPECT_EQ(bounds.right - bounds.left, 380);
    EXPECT_EQ(bounds.left, (GetSystemMetrics(SM_CXSCREEN) - 380) / 2);
    EXPECT_EQ(bounds.bottom, GetSystemMetrics(SM_CYSCREEN) - 80);
}
INSTANTIATE_TEST_SUITE_P(Overlay, OverlayHeight,
                         testing::Values(HeightCase{0, 420}, HeightCase{100, 420},
                                         HeightCase{-5, 420}, HeightCase{421, 421},
                                         HeightCase{2000, 2000}));

TEST(Overlay, IsHiddenByCloseAndShownAgainByItsTrayIcon) {
    OverlayProbe overlay;
    const auto visible = [&] { return IsWindowVisible(overlay.Window()) != FALSE; };
    const auto firstRow = [&] { return WideToUtf8(overlay.Tray().MenuRows()[0].text); };
    ASSERT_TRUE(visible());
    EXPECT_EQ(firstRow(), "Hide Caption Window");
    overlay.Send(WM_CLOSE);
    EXPECT_FALSE(visible());
    EXPECT_EQ(firstRow(), "Show Caption Window");
    overlay.Send(kMsgTray, 1, WM_LBUTTONUP);
    EXPECT_TRUE(visible());
    overlay.Command(kHideButton);
    EXPECT_FALSE(visible());
    overlay.Result("stored", "while hidden");
    EXPECT_EQ(overlay.Captions().size(), 1u);
    // Another start of the program shows the window and tells the tray icon nothing.
    ShowWindow(overlay.Window(), SW_SHOW);
    EXPECT_EQ(firstRow(), "Show Caption Window");
    overlay.Tray().RunCommand(1001);
    EXPECT_FALSE(visible()) << "the toggle asks the window itself";
    overlay.Send(kMsgTray, 1, WM_MOUSEMOVE);
    EXPECT_FALSE(visible());
}

TEST(Overlay, LetsThePointerThroughAndTakesItAgainStayingLayered) {
    OverlayProbe overlay;
    const auto style = [&] {
        return GetWindowLongPtrW(overlay.Window(), GWL_EXSTYLE) & 0x080800A8;
    };
    EXPECT_EQ(style(), 0x08080088);
    overlay.Tray().RunCommand(1002);
    EXPECT_EQ(style(), 0x080800A8);
    EXPECT_TRUE(overlay.Tray().MenuRows()[2].checked);
    overlay.Tray().RunCommand(1002);
    EXPECT_EQ(style(), 0x08080088);
    EXPECT_FALSE(overlay.Tray().MenuRows()[2].checked);
    EXPECT_FALSE(overlay.Tray().allowRecording);
    overlay.Tray().RunCommand(1003);
    EXPECT_TRUE(overlay.Tray().allowRecording);
    overlay.Tray().RunCommand(0);
    EXPECT_TRUE(overlay.Tray().allowRecording) << "nothing was chosen";
}

TEST(Overlay, StartsWithTheSourcesThatWereStored) {
    for (const bool mic : {false, true}) {
        const OverlayProbe overlay({TEXT("key-1"), mic, !mic, 0});
        EXPECT_EQ(overlay.UsesMic(), mic);
        EXPECT_EQ(overlay.UsesLoopback(), !mic);
    }
}

TEST(Overlay, StartsWithTheTextThatShowsTheButtonsToPress) {
    const OverlayProbe overlay;
    EXPECT_EQ(overlay.Status(), "Click  \xEE\x9C\x93 to setup, then \xEE\x9D\xA8 to start");
    EXPECT_EQ(Utf8ToWide(overlay.Status()).size(), 34u);
}

// ---- The pointer -------------------------------------------------------------------------------

class Pointer : public testing::Test {
protected:
    OverlayProbe overlay;
};

TEST_F(Pointer, ResizesAtTheBottomEdgeStoringEachHeight) {
    const RECT before = overlay.Bounds();
    overlay.Press(100, 414);
    overlay.Move(100, 500, true);
    EXPECT_EQ(HeightOf(overlay.Bounds()), 506);
    EXPECT_EQ(Stored(TEXT("window_height")), 506u);
    overlay.Move(100, -300, true);
    EXPECT_EQ(HeightOf(overlay.Bounds()), 420) << "the lower bound";
    overlay.Release(100, -300);
    overlay.Move(100, 600, true);
    EXPECT_EQ(HeightOf(overlay.Bounds()), 420) << "the drag has ended";
    EXPECT_EQ(overlay.Bounds().top, before.top);
    overlay.Press(100, 420); // outside the client area by one row, as a captured pointer may be
    overlay.Move(100, 430, true);
    EXPECT_EQ(HeightOf(overlay.Bounds()), 430);
}

TEST_F(Pointer, MovesTheWindowAnywhereAlsoOffTheScreen) {
    const RECT before = overlay.Bounds();
    overlay.Press(30, 200);
    overlay.Move(-970, 100, true);
    const RECT after = overlay.Bounds();
    EXPECT_EQ(after.left, before.left - 1000);
    EXPECT_EQ(after.top, before.top - 100);
    overlay.Send(WM_CAPTURECHANGED);
    overlay.Move(500, 500, true);
    EXPECT_EQ(overlay.Bounds().left, after.left) << "another window has taken the pointer";
}

TEST_F(Pointer, ScrollsByThumbAndByPage) {
    for (int i = 0; i < 60; ++i) {
        overlay.Result("said", "meant");
    }
    const int most = overlay.MaxScroll();
    const RECT area = overlay.CaptionArea();
    const int page = area.bottom - area.top;
    overlay.Press(374, overlay.Track().top + 2);
    EXPECT_EQ(overlay.Scroll(), most - page);
    EXPECT_TRUE(overlay.ScrolledUp());
    overlay.Release(374, overlay.Track().top + 2);
    overlay.Press(374, overlay.Track().bottom - 1);
    EXPECT_EQ(overlay.Scroll(), most);
    EXPECT_FALSE(overlay.ScrolledUp());
    overlay.Release(374, overlay.Track().bottom - 1);

    const int thumb = (overlay.Thumb().top + overlay.Thumb().bottom) / 2;
    overlay.Drag(374, thumb, thumb - 50);
    EXPECT_LT(overlay.Scroll(), most);
    EXPECT_TRUE(overlay.ScrolledUp());
    overlay.Drag(374, overlay.Thumb().top + 1, overlay.Thumb().top - 1000);
    EXPECT_EQ(overlay.Scroll(), 0);
    overlay.Drag(374, overlay.Thumb().top + 1, overlay.Thumb().top + 1000);
    EXPECT_EQ(overlay.Scroll(), most);
    EXPECT_FALSE(overlay.ScrolledUp()) << "at the very end the view follows again";
    const RECT before = overlay.Bounds();
    overlay.Command(kClearButton);
    overlay.Drag(374, 200, 210);
    EXPECT_EQ(overlay.Bounds().top, before.top + 10) << "without a scroll bar the window moves";
}

TEST_F(Pointer, ShowsATooltipAboveTheButtonUnderItAndNoneElsewhere) {
    const ToolbarRect button = overlay.Button(kClearButton);
    const auto shown = [&] { return IsWindowVisible(overlay.Tooltip()) != FALSE; };
    overlay.Move(button.left + 3, button.top + 3);
    ASSERT_TRUE(shown());
    RECT tip;
    GetWindowRect(overlay.Tooltip(), &tip);
    const RECT window = overlay.Bounds();
    EXPECT_EQ(tip.bottom, window.top + button.top - 10);
    EXPECT_NEAR((tip.left + tip.right) / 2, window.left + (button.left + button.right) / 2, 1);
    EXPECT_GT(tip.right - tip.left, 60);
    overlay.Move(button.left + 3, 39);
    EXPECT_FALSE(shown());
    overlay.Move(button.left + 3, button.top + 3);
    EXPECT_EQ(overlay.HoveredButton(), kClearButton);
    overlay.Send(WM_MOUSELEAVE);
    EXPECT_FALSE(shown());
    EXPECT_EQ(overlay.HoveredButton(), kNoButton);
}

TEST_F(Pointer, FindsTheButtonThatStandsThereAfterARunHasBegun) {
    const ToolbarRect start = overlay.Button(kStartButton);
    overlay.Move(start.left + 3, start.top + 3);
    EXPECT_EQ(overlay.HoveredButton(), kStartButton);
    overlay.Send(kMsgStarted);
    overlay.Move(start.left + 4, start.top + 3);
    EXPECT_EQ(overlay.HoveredButton(), kStopButton);
}

TEST_F(Pointer, StoresWhatItToggles) {
    overlay.Command(kMicrophoneButton);
    overlay.Command(kLoopbackButton);
    EXPECT_EQ(Stored(TEXT("use_mic")), 0u);
    EXPECT_EQ(Stored(TEXT("use_loopback")), 1u);
}

} // namespace

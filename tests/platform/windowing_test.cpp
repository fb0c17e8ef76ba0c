#include "forked_child.h"
#include "windowing/input_queue.h"
#include "windowing/message_loop.h"
#include "windowing/pixels.h"
#include "windowing/pushed_picture.h"
#include "windowing/timers.h"

#include <windows.h>
#include <QApplication>
#include <QKeyEvent>
#include <QMenu>
#include <dwmapi.h>
#include <gtest/gtest.h>
#include <shellapi.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Received {
    HWND window;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};

std::vector<Received> received;
std::map<UINT, std::function<LRESULT(HWND, WPARAM, LPARAM)>> handlers;

LRESULT CALLBACK Record(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    received.push_back({window, message, wParam, lParam});
    const auto handler = handlers.find(message);
    return handler != handlers.end() ? handler->second(window, wParam, lParam)
                                     : DefWindowProcW(window, message, wParam, lParam);
}

constexpr DWORD kOverlayStyle = WS_EX_TOPMOST | WS_EX_TOOLWINDOW | WS_EX_LAYERED | WS_EX_NOACTIVATE;

void Register(LPCWSTR name, UINT style = 0) {
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    windowClass.style = style;
    windowClass.lpfnWndProc = Record;
    windowClass.lpszClassName = name;
    RegisterClassExW(&windowClass);
}

// Windows at (100, 50) of 40 by 30 pixels, whose procedure notes all and does what `handlers` say.
class Windows : public testing::Test {
protected:
    // A screen of 1000 pixels, and to its right another one of 144 DPI. Before the first window.
    static void SetUpTestSuite() {
        const std::string file = std::string(std::getenv("HOME")) + "/screens.json";
        std::ofstream(file) << R"({"screens": [
            {"name": "left", "x": 0, "y": 0, "width": 1000, "height": 800, "logicalDpi": 96},
            {"name": "right", "x": 1000, "y": 0, "width": 1000, "height": 800, "logicalDpi": 144}
        ]})";
        setenv("QT_QPA_PLATFORM", ("offscreen:configfile=" + file).c_str(), 1);
    }
    void SetUp() override {
        Register(TEXT("Plain"));
        Register(TEXT("Doubling"), CS_DBLCLKS);
    }
    void TearDown() override {
        handlers.clear();
        for (const HWND window : windows_) {
            DestroyWindow(window);
        }
        MSG message{};
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != FALSE) {
        }
        received.clear();
    }

    HWND Create(DWORD exStyle = kOverlayStyle, LPCWSTR name = TEXT("Plain"), HWND owner = nullptr) {
        windows_.push_back(CreateWindowExW(exStyle, name, TEXT("Title"), WS_POPUP, 100, 50, 40, 30,
                                           owner, nullptr, nullptr, nullptr));
        return windows_.back();
    }
    HWND CreateShown(DWORD exStyle = kOverlayStyle, LPCWSTR name = TEXT("Plain")) {
        const HWND window = Create(exStyle, name);
        ShowWindow(window, SW_SHOWNOACTIVATE);
        UpdateWindow(window);
        received.clear();
        return window;
    }

    // Serves what waits, without sleeping.
    static void Pump() {
        MSG message{};
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != FALSE) {
            DispatchMessageW(&message);
        }
    }
    static std::vector<UINT> Messages(HWND window) {
        std::vector<UINT> messages;
        for (const Received& one : received) {
            if (one.window == window) {
                messages.push_back(one.message);
            }
        }
        return messages;
    }
    static void Put(HWND window, UINT message, LONG x, LONG y, WORD keys = 0, bool second = false) {
        windowing::PutPointerInput({window, message, keys, 0, {x, y}, second, 0});
    }

private:
    std::vector<HWND> windows_;
};

using Ids = std::vector<UINT>;

TEST_F(Windows, OwnedWindowsGoBeforeTheirOwnerAndTheOwnerHearsOfItsEndOnce) {
    const HWND owner = Create();
    const HWND owned = Create(kOverlayStyle, TEXT("Plain"), owner);
    EXPECT_EQ(Messages(owner), (Ids{WM_NCCREATE, WM_CREATE}));
    received.clear();
    handlers[WM_DESTROY] = [&](HWND window, WPARAM, LPARAM) {
        EXPECT_FALSE(DestroyWindow(window)) << "it is being destroyed already";
        EXPECT_EQ(IsWindow(owned), window == owned ? TRUE : FALSE);
        return 0;
    };
    PostMessageW(owner, WM_APP, 0, 0);
    EXPECT_TRUE(DestroyWindow(owner));
    ASSERT_EQ(received.size(), 4U);
    EXPECT_EQ(Messages(owned), (Ids{WM_DESTROY, WM_NCDESTROY}));
    EXPECT_EQ(received.front().window, owned);
    Pump();
    EXPECT_EQ(received.size(), 4U) << "a message came for a window that is gone";
}

TEST_F(Windows, AWindowThatRefusesItsCreationIsGoneAndGetsOnlyTheEndingsItHasComeTo) {
    struct Case {
        UINT refusedAt;
        LRESULT answer;
        Ids messages;
    };
    const Case cases[] = {
        {WM_NCCREATE, FALSE, {WM_NCCREATE, WM_NCDESTROY}},
        {WM_CREATE, -1, {WM_NCCREATE, WM_CREATE, WM_DESTROY, WM_NCDESTROY}},
    };
    for (const Case& one : cases) {
        received.clear();
        handlers.clear();
        handlers[one.refusedAt] = [&](HWND, WPARAM, LPARAM) { return one.answer; };
        EXPECT_EQ(Create(), nullptr);
        ASSERT_FALSE(received.empty());
        EXPECT_EQ(Messages(received.front().window), one.messages);
        EXPECT_FALSE(IsWindow(received.front().window));
    }
    handlers.clear();
    handlers[WM_NCCREATE] = [](HWND window, WPARAM, LPARAM creation) -> LRESULT {
        SetWindowLongPtrW(window, GWLP_USERDATA, creation);
        return TRUE;
    };
    handlers[WM_CREATE] = [](HWND window, WPARAM, LPARAM creation) -> LRESULT {
        EXPECT_EQ(GetWindowLongPtrW(window, GWLP_USERDATA), creation);
        EXPECT_EQ(reinterpret_cast<CREATESTRUCTW*>(creation)->cx, 40);
        return 0;
    };
    EXPECT_NE(Create(), nullptr);
    EXPECT_EQ(Create(0, TEXT("Nobody registered this")), nullptr);
}

TEST_F(Windows, NothingCanBeDoneWithNullOrAWindowThatIsGone) {
    const HWND gone = Create();
    DestroyWindow(gone);
    POINT point{};
    RECT rect{};
    PAINTSTRUCT paint{};
    TRACKMOUSEEVENT track{sizeof track, TME_LEAVE, gone, 0};
    for (const HWND window : {gone, HWND{nullptr}}) {
        EXPECT_FALSE(IsWindow(window));
        EXPECT_FALSE(IsWindowVisible(window));
        EXPECT_FALSE(DestroyWindow(window));
        EXPECT_FALSE(ShowWindow(window, SW_SHOW));
        EXPECT_FALSE(SetForegroundWindow(window));
        EXPECT_FALSE(SetWindowPos(window, HWND_TOPMOST, 0, 0, 1, 1, 0));
        EXPECT_FALSE(GetWindowRect(window, &rect));
        EXPECT_FALSE(GetClientRect(window, &rect));
        EXPECT_FALSE(ClientToScreen(window, &point));
        EXPECT_FALSE(ScreenToClient(window, &point));
        EXPECT_FALSE(InvalidateRect(window, nullptr, TRUE));
        EXPECT_FALSE(UpdateWindow(window));
        EXPECT_EQ(BeginPaint(window, &paint), nullptr);
        EXPECT_FALSE(EndPaint(window, &paint));
        EXPECT_FALSE(PostMessageW(window, WM_APP, 0, 0));
        EXPECT_EQ(SendMessageW(window, WM_NCCREATE, 0, 0), 0);
        EXPECT_EQ(DefWindowProcW(window, WM_NCCREATE, 0, 0), 0);
        EXPECT_EQ(SetWindowLongPtrW(window, GWL_EXSTYLE, 1), 0);
        EXPECT_EQ(GetWindowLongPtrW(window, GWL_EXSTYLE), 0);
        EXPECT_EQ(SetTimer(window, 1, 10, nullptr), 0U);
        EXPECT_FALSE(KillTimer(window, 1));
        EXPECT_EQ(SetCapture(window), nullptr);
        EXPECT_EQ(GetCapture(), nullptr);
        EXPECT_FALSE(TrackMouseEvent(&track));
        EXPECT_EQ(GetDpiForWindow(window), 0U);
        EXPECT_NE(DwmSetWindowAttribute(window, DWMWA_WINDOW_CORNER_PREFERENCE, &rect, 4), S_OK);
        EXPECT_TRUE(windowing::PushedPicture(window).isNull());
    }
}

TEST_F(Windows, MessagesFromManyThreadsKeepTheirOrderAndNoneIsLost) {
    constexpr WPARAM kPosters = 8;
    constexpr LPARAM kEach = 20000;
    const HWND window = Create();
    received.clear();
    std::vector<std::thread> posters;
    for (WPARAM poster = 0; poster < kPosters; ++poster) {
        posters.emplace_back([=] {
            for (LPARAM number = 0; number < kEach; ++number) {
                EXPECT_TRUE(PostMessageW(window, WM_APP + 1, poster, number));
            }
            PostMessageW(window, WM_APP + 2, 0, 0);
        });
    }
    std::vector<LPARAM> next(kPosters, 0);
    WPARAM ended = 0;
    bool inOrder = true;
    MSG message{};
    while (ended < kPosters && GetMessageW(&message, nullptr, 0, 0) > 0) {
        if (message.message == WM_APP + 2) {
            ++ended;
        } else {
            inOrder = inOrder && message.lParam == next[message.wParam];
            ++next[message.wParam];
        }
    }
    for (std::thread& poster : posters) {
        poster.join();
    }
    EXPECT_TRUE(inOrder);
    EXPECT_EQ(next, std::vector<LPARAM>(kPosters, kEach));
}

TEST_F(Windows, AnyThreadWakesALoopThatSleeps) {
    const HWND window = Create();
    std::thread poster;
    handlers[WM_APP] = [&](HWND, WPARAM left, LPARAM) {
        if (poster.joinable()) {
            poster.join();
        }
        if (left == 0) {
            PostQuitMessage(7);
        } else {
            poster = std::thread([=] { PostMessageW(window, WM_APP, left - 1, 0); });
        }
        return 0;
    };
    PostMessageW(window, WM_APP, 200, 0);
    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        DispatchMessageW(&message);
    }
    EXPECT_EQ(message.message, WM_QUIT);
    EXPECT_EQ(message.wParam, 7U);
}

TEST_F(Windows, PostedMessagesComeBeforeInputTimersAndPaintingInThatOrder) {
    const HWND window = CreateShown();
    InvalidateRect(window, nullptr, FALSE);
    windowing::AllTimers().Set(window, 5, 10,
                               windowing::Timers::Clock::now() - std::chrono::seconds(1));
    Put(window, WM_LBUTTONDOWN, 101, 51);
    PostMessageW(window, WM_APP, 0, 0);
    Pump();
    KillTimer(window, 5);
    std::vector<UINT> first = Messages(window);
    first.resize(5);
    EXPECT_EQ(first, (Ids{WM_APP, WM_SETCURSOR, WM_LBUTTONDOWN, WM_TIMER, WM_PAINT}));
}

TEST_F(Windows, AFloodOfPostedMessagesDoesNotShutOutThePointer) {
    const HWND window = CreateShown();
    int flood = 0;
    handlers[WM_APP] = [&](HWND, WPARAM, LPARAM) {
        ++flood;
        PostMessageW(window, WM_APP, 0, 0);
        return 0;
    };
    bool pressed = false;
    handlers[WM_LBUTTONDOWN] = [&](HWND, WPARAM, LPARAM) {
        pressed = true;
        return 0;
    };
    PostMessageW(window, WM_APP, 0, 0);
    Put(window, WM_LBUTTONDOWN, 101, 51);
    windowing::DispatchUntil([&] { return pressed || flood == 1000; });
    EXPECT_TRUE(pressed);
}

TEST_F(Windows, WhatIsInvalidIsPaintedOnceAndOnlyWhileTheWindowShows) {
    const HWND window = CreateShown(WS_EX_TOPMOST);
    std::vector<RECT> painted;
    handlers[WM_PAINT] = [&](HWND, WPARAM, LPARAM) {
        PAINTSTRUCT paint{};
        EXPECT_NE(BeginPaint(window, &paint), nullptr);
        EXPECT_EQ(BeginPaint(window, &paint), nullptr) << "it is being painted";
        EndPaint(window, &paint);
        painted.push_back(paint.rcPaint);
        return 0;
    };
    handlers[WM_PAINT](window, 0, 0);
    painted.clear();
    const RECT parts[] = {{2, 3, 10, 10}, {20, 1, 100, 5}, {50, 50, 60, 60}};
    for (const RECT& part : parts) {
        InvalidateRect(window, &part, FALSE);
    }
    received.clear();
    UpdateWindow(window);
    UpdateWindow(window);
    Pump();
    EXPECT_EQ(Messages(window), (Ids{WM_PAINT}));
    ShowWindow(window, SW_HIDE);
    InvalidateRect(window, nullptr, TRUE);
    UpdateWindow(window);
    Pump();
    EXPECT_EQ(Messages(window), (Ids{WM_PAINT}));
    ShowWindow(window, SW_SHOWNOACTIVATE);
    Pump();
    EXPECT_EQ(Messages(window), (Ids{WM_PAINT, WM_PAINT, WM_ERASEBKGND}));
}

TEST_F(Windows, AWindowIsToldOfTheDpiOfTheScreenThatItsMiddleIsOn) {
    const HWND window = CreateShown();
    std::vector<RECT> suggested;
    handlers[WM_DPICHANGED] = [&](HWND, WPARAM dpi, LPARAM rect) {
        EXPECT_EQ(LOWORD(dpi), GetDpiForWindow(window));
        EXPECT_EQ(HIWORD(dpi), GetDpiForWindow(window));
        suggested.push_back(*reinterpret_cast<const RECT*>(rect));
        return 0;
    };
    const auto moveTo = [&](int x) {
        SetWindowPos(window, nullptr, x, 50, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    };
    EXPECT_EQ(GetSystemMetrics(SM_CXSCREEN), 1000);
    EXPECT_EQ(GetDpiForWindow(window), 96U);
    moveTo(979);
    EXPECT_TRUE(suggested.empty());
    moveTo(981);
    ASSERT_EQ(suggested.size(), 1U);
    EXPECT_EQ(GetDpiForWindow(window), 144U);
    EXPECT_EQ(suggested[0].left, 981);
    EXPECT_EQ(suggested[0].top, 50);
    EXPECT_EQ(suggested[0].right - suggested[0].left, 60);
    EXPECT_EQ(suggested[0].bottom - suggested[0].top, 45);
    moveTo(5000);
    EXPECT_EQ(GetDpiForWindow(window), 96U) << "on no screen the primary one's counts";
}

TEST_F(Windows, CaptureIsLostByWhoeverHadItAndToldToNobodyElse) {
    const HWND first = CreateShown();
    const HWND second = CreateShown();
    EXPECT_EQ(SetCapture(first), nullptr);
    EXPECT_EQ(SetCapture(second), first);
    ASSERT_EQ(received.size(), 1U);
    EXPECT_EQ(received[0].window, first);
    EXPECT_EQ(received[0].message, WM_CAPTURECHANGED);
    EXPECT_EQ(received[0].lParam, reinterpret_cast<LPARAM>(second));
    SetCapture(second);
    EXPECT_EQ(received.size(), 1U) << "it kept what it had";
    ReleaseCapture();
    ReleaseCapture();
    ASSERT_EQ(received.size(), 2U);
    EXPECT_EQ(received[1].window, second);
    EXPECT_EQ(received[1].lParam, 0);
    SetCapture(first);
    ShowWindow(first, SW_HIDE);
    EXPECT_EQ(GetCapture(), nullptr);
    EXPECT_EQ(received.size(), 3U) << "a hidden window loses the capture";
    SetCapture(second);
    DestroyWindow(second);
    EXPECT_EQ(GetCapture(), nullptr);
}

TEST_F(Windows, ThePointerIsPlacedWhereTheWindowStandsWhenTheMessageIsFetched) {
    const HWND window = CreateShown();
    Put(window, WM_MOUSEMOVE, 105, 55);
    Put(window, WM_MOUSEMOVE, 110, 60);
    Put(window, WM_MOUSEMOVE, 111, 62, MK_LBUTTON);
    windowing::PutPointerInput({window, WM_MOUSEWHEEL, 0, -120, {112, 63}, false, 0});
    SetWindowPos(window, nullptr, 90, 40, 0, 0, SWP_NOSIZE | SWP_NOZORDER);
    Pump();
    std::erase_if(received, [](const Received& one) { return one.message == WM_SETCURSOR; });
    ASSERT_EQ(received.size(), 3U) << "moves that nobody fetched are one, unless the keys differ";
    EXPECT_EQ(received[0].lParam, MAKELPARAM(20, 20));
    EXPECT_EQ(received[1].lParam, MAKELPARAM(21, 22));
    EXPECT_EQ(received[1].wParam, MK_LBUTTON);
    EXPECT_EQ(received[2].lParam, MAKELPARAM(112, 63)) << "the wheel is told on the screen";
    EXPECT_EQ(GET_WHEEL_DELTA_WPARAM(received[2].wParam), -120);
}

TEST_F(Windows, InputOutsideAWindowIsItsBusinessOnlyWhileItHasTheCapture) {
    const HWND window = CreateShown();
    Put(window, WM_LBUTTONUP, 20, 300);
    Pump();
    EXPECT_EQ(Messages(window), Ids{});
    SetCapture(window);
    Put(window, WM_LBUTTONUP, 20, 300);
    Pump();
    ASSERT_EQ(Messages(window), (Ids{WM_LBUTTONUP})) << "no cursor is asked for meanwhile";
    EXPECT_EQ(received[0].lParam, MAKELPARAM(-80, 250));
}

TEST_F(Windows, ThePointerLeavesOnceForEachRequestAndNotDuringACapture) {
    const HWND window = CreateShown();
    TRACKMOUSEEVENT track{sizeof track, TME_LEAVE, window, 0};
    const auto leave = [&] {
        windowing::PutPointerInput({window, WM_MOUSELEAVE, 0, 0, {}, false, 0});
        Pump();
    };
    leave();
    EXPECT_EQ(Messages(window), Ids{}) << "nobody asked";
    TrackMouseEvent(&track);
    leave();
    leave();
    EXPECT_EQ(Messages(window), (Ids{WM_MOUSELEAVE}));
    received.clear();
    TrackMouseEvent(&track);
    SetCapture(window);
    Put(window, WM_MOUSEMOVE, 0, 0);
    leave();
    EXPECT_EQ(Messages(window), (Ids{WM_MOUSEMOVE}));
    ReleaseCapture();
    Pump();
    EXPECT_EQ(Messages(window), (Ids{WM_MOUSEMOVE, WM_CAPTURECHANGED, WM_MOUSELEAVE}));
}

TEST_F(Windows, ADoubleClickIsTwoPressesUnlessTheClassWantsToKnow) {
    struct Case {
        LPCWSTR name;
        UINT secondPress;
    };
    for (const Case& one :
         {Case{TEXT("Plain"), WM_LBUTTONDOWN}, Case{TEXT("Doubling"), WM_LBUTTONDBLCLK}}) {
        const HWND window = CreateShown(kOverlayStyle, one.name);
        Put(window, WM_LBUTTONDOWN, 101, 51, MK_LBUTTON, true);
        Pump();
        EXPECT_EQ(Messages(window), (Ids{WM_SETCURSOR, one.secondPress}));
        DestroyWindow(window);
    }
}

TEST_F(Windows, ATimerComesAgainUntilItIsKilledAndGoesWithItsWindow) {
    const HWND window = Create();
    const HWND other = Create();
    int left = 3;
    handlers[WM_TIMER] = [&](HWND, WPARAM id, LPARAM) {
        if (id == 1) {
            KillTimer(window, 1);
        } else if (--left == 0) {
            PostQuitMessage(0);
        }
        return 0;
    };
    received.clear();
    SetTimer(window, 1, 15, nullptr);
    SetTimer(window, 2, 20, nullptr);
    SetTimer(other, 3, 10, nullptr);
    DestroyWindow(other);
    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        DispatchMessageW(&message);
    }
    EXPECT_EQ(Messages(window), (Ids{WM_TIMER, WM_TIMER, WM_TIMER, WM_TIMER}));
    EXPECT_FALSE(KillTimer(window, 1));
    EXPECT_TRUE(KillTimer(window, 2));
}

TEST(Timers, ATimerThatWasNotServedInTimeIsDueOnceAndTheLongestDueComesFirst) {
    using namespace std::chrono_literals;
    windowing::Timers timers;
    const auto start = windowing::Timers::Clock::now();
    timers.Set(nullptr, 1, 100, start);
    timers.Set(nullptr, 2, 30, start);
    timers.Set(nullptr, 2, 50, start); // the same one anew
    EXPECT_FALSE(timers.TakeDue({}, true, start + 49ms));
    EXPECT_EQ(timers.TakeDue({}, true, start + 1000ms)->wParam, 2U);
    EXPECT_EQ(timers.TakeDue({}, true, start + 1000ms)->wParam, 1U);
    EXPECT_FALSE(timers.TakeDue({}, true, start + 1000ms));
    EXPECT_EQ(timers.NextDue(), start + 1050ms);
}

TEST_F(Windows, AQuitMessageEndsNestedLoopsAndTheOutermostOne) {
    const HWND window = Create();
    handlers[WM_APP] = [&](HWND, WPARAM depth, LPARAM) {
        if (depth == 0) {
            PostQuitMessage(3);
        } else {
            PostMessageW(window, WM_APP, depth - 1, 0);
            windowing::DispatchUntil([] { return false; });
        }
        return 0;
    };
    PostMessageW(window, WM_APP, 4, 0);
    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        DispatchMessageW(&message);
    }
    EXPECT_EQ(message.wParam, 3U);
    EXPECT_FALSE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) << "it quits once";
}

TEST_F(Windows, PeekingLeavesMessagesAndFetchesOnlyWhatIsAskedFor) {
    const HWND window = Create();
    const HWND other = Create();
    PostMessageW(other, WM_APP + 1, 0, 0);
    PostMessageW(window, WM_APP + 2, 0, 0);
    PostMessageW(window, WM_APP + 3, 0, 0);
    MSG message{};
    EXPECT_TRUE(PeekMessageW(&message, window, 0, 0, PM_NOREMOVE));
    EXPECT_EQ(message.message, WM_APP + 2);
    EXPECT_TRUE(PeekMessageW(&message, nullptr, WM_APP + 3, WM_APP + 9, PM_REMOVE));
    EXPECT_EQ(message.message, WM_APP + 3);
    EXPECT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(message.hwnd, other);
    EXPECT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(message.message, WM_APP + 2);
}

// ---- Layered windows --------------------------------------------------------------------------

// A bitmap in memory to push from: every pixel is of `pixel`, premultiplied ARGB.
class Bitmap {
public:
    Bitmap(int width, int height, std::uint32_t pixel) {
        BITMAPINFO info{};
        info.bmiHeader = {sizeof(BITMAPINFOHEADER), width, -height, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
        void* bits = nullptr;
        bitmap_ = CreateDIBSection(context_, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
        SelectObject(context_, bitmap_);
        pixels_ = static_cast<std::uint32_t*>(bits);
        std::fill_n(pixels_, width * height, pixel);
    }
    Bitmap(const Bitmap&) = delete;
    Bitmap& operator=(const Bitmap&) = delete;
    ~Bitmap() {
        DeleteDC(context_);
        DeleteObject(bitmap_);
    }
    std::uint32_t& operator[](int index) { return pixels_[index]; }

    BOOL Push(HWND window, POINT from, SIZE size, BYTE alpha, BYTE format = AC_SRC_ALPHA,
              DWORD flags = ULW_ALPHA, POINT* position = nullptr) {
        BLENDFUNCTION blend{AC_SRC_OVER, 0, alpha, format};
        return UpdateLayeredWindow(window, nullptr, position, &size, context_, &from, 0, &blend,
                                   flags);
    }

private:
    HDC context_ = CreateCompatibleDC(nullptr);
    HBITMAP bitmap_ = nullptr;
    std::uint32_t* pixels_ = nullptr;
};

TEST_F(Windows, ALayeredWindowShowsItsPictureTimesTheConstantAlpha) {
    const HWND window = CreateShown();
    Bitmap bitmap(50, 40, 0xFF804020);
    bitmap[50 + 2] = 0x80402000;
    struct Case {
        BYTE alpha;
        BYTE format;
        std::uint32_t first; // at (2, 1) of the bitmap
        std::uint32_t next;
    };
    const Case cases[] = {
        {255, AC_SRC_ALPHA, 0x80402000, 0xFF804020},
        {220, AC_SRC_ALPHA, 0x6E371C00, 0xDC6E371C},
        {220, 0, 0xDC371C00, 0xDC6E371C},
        {0, AC_SRC_ALPHA, 0, 0},
    };
    for (const Case& one : cases) {
        ASSERT_TRUE(bitmap.Push(window, {2, 1}, {40, 30}, one.alpha, one.format));
        const QImage pushed = windowing::PushedPicture(window);
        ASSERT_EQ(pushed.size(), QSize(40, 30));
        const auto* row = reinterpret_cast<const std::uint32_t*>(pushed.constScanLine(0));
        EXPECT_EQ(row[0], one.first);
        EXPECT_EQ(row[1], one.next);
    }
}

TEST_F(Windows, APushMovesAndResizesTheWindowAndABadOneChangesNothing) {
    const HWND window = CreateShown();
    const HWND plain = CreateShown(WS_EX_TOPMOST);
    Bitmap bitmap(50, 40, 0xFF000000);
    POINT position{-7, 9};
    EXPECT_TRUE(bitmap.Push(window, {0, 0}, {50, 40}, 255, AC_SRC_ALPHA, ULW_ALPHA, &position));
    RECT rect{};
    GetWindowRect(window, &rect);
    EXPECT_EQ(rect.left, -7);
    EXPECT_EQ(rect.bottom, 49);
    EXPECT_FALSE(bitmap.Push(window, {1, 0}, {50, 40}, 255)) << "reaches out of the bitmap";
    EXPECT_FALSE(bitmap.Push(window, {-1, 0}, {10, 10}, 255));
    EXPECT_FALSE(bitmap.Push(window, {0, 0}, {0, 10}, 255));
    EXPECT_FALSE(bitmap.Push(window, {0, 0}, {10, 10}, 255, AC_SRC_ALPHA, 0));
    EXPECT_FALSE(bitmap.Push(plain, {0, 0}, {10, 10}, 255)) << "not a layered window";
    EXPECT_EQ(windowing::PushedPicture(window).size(), QSize(50, 40));
}

TEST_F(Windows, RoundCornersAreCutSmoothlyAndAlikeOnAllFour) {
    const HWND window = CreateShown();
    const DWORD round = DWMWCP_ROUND;
    ASSERT_EQ(DwmSetWindowAttribute(window, DWMWA_WINDOW_CORNER_PREFERENCE, &round, sizeof round),
              S_OK);
    Bitmap bitmap(40, 30, 0xFFFFFFFF);
    ASSERT_TRUE(bitmap.Push(window, {0, 0}, {40, 30}, 255));
    const QImage pushed = windowing::PushedPicture(window);
    EXPECT_EQ(pushed.pixelColor(0, 0).alpha(), 0);
    EXPECT_EQ(pushed.pixelColor(8, 0).alpha(), 255);
    EXPECT_EQ(pushed.pixelColor(5, 5).alpha(), 255);
    const int edge = pushed.pixelColor(3, 1).alpha();
    EXPECT_GT(edge, 0);
    EXPECT_LT(edge, 255);
    EXPECT_EQ(pushed, pushed.mirrored(true, false));
    EXPECT_EQ(pushed, pushed.mirrored(false, true));
}

TEST(Pixels, AlphaIsMultipliedExactlyForEveryByte) {
    QImage source(256, 1, QImage::Format_ARGB32_Premultiplied);
    for (std::size_t byte = 0; byte < 256; ++byte) {
        std::fill_n(source.scanLine(0) + byte * 4, 4, static_cast<uchar>(byte));
    }
    QImage target(256, 1, QImage::Format_ARGB32_Premultiplied);
    int wrong = 0;
    for (unsigned alpha = 0; alpha < 256; ++alpha) {
        windowing::CopyWithAlpha(source, {0, 0}, true, alpha, target);
        for (std::size_t byte = 0; byte < 256; ++byte) {
            wrong += target.constScanLine(0)[byte * 4] != (byte * alpha * 2 + 255) / 510 ? 1 : 0;
        }
    }
    EXPECT_EQ(wrong, 0);
}

TEST(Pixels, TheSolidPartsAreExactlyThePixelsThatAreThere) {
    const char* const pictures[][4] = {
        {"####", "####", "####", "####"}, {"    ", "    ", "    ", "    "},
        {" ## ", "####", "####", " ## "}, {"# ##", "# ##", "#  #", "#  #"},
        {"    ", "#  #", "    ", " ## "},
    };
    const std::size_t counts[] = {0, 0, 3, 4, 3};
    for (std::size_t i = 0; i < std::size(pictures); ++i) {
        QImage picture(4, 4, QImage::Format_ARGB32_Premultiplied);
        picture.fill(0x7F000000);
        for (int y = 0; y < 4; ++y) {
            for (int x = 0; x < 4; ++x) {
                if (pictures[i][y][x] == '#') {
                    picture.setPixel(x, y, 0x80000000);
                }
            }
        }
        const auto parts = windowing::PartsOfAlpha(picture, 128);
        ASSERT_EQ(parts.has_value(), i != 0) << "the whole is no region";
        if (!parts.has_value()) {
            continue;
        }
        EXPECT_EQ(parts->size(), counts[i]) << "picture " << i;
        for (int y = 0; y < 4; ++y) {
            for (int x = 0; x < 4; ++x) {
                const auto covers = [&](const RECT& rect) { return PtInRect(&rect, {x, y}) != 0; };
                EXPECT_EQ(std::count_if(parts->begin(), parts->end(), covers),
                          pictures[i][y][x] == '#' ? 1 : 0);
            }
        }
    }
    QImage torn(100, 100, QImage::Format_ARGB32_Premultiplied);
    for (int i = 0; i < 10000; ++i) {
        torn.setPixel(i % 100, i / 100, (i + i / 100) % 2 == 0 ? 0xFF000000 : 0);
    }
    EXPECT_FALSE(windowing::PartsOfAlpha(torn, 128).has_value());
}

// ---- Other processes --------------------------------------------------------------------------

// Looks for a window of the class each time that it is asked to, from before there was any.
class Searcher {
public:
    explicit Searcher(LPCWSTR name) : child_([=, this](int told) { return Search(name, told); }) {
        close(asked_[0]);
    }
    ~Searcher() { close(asked_[1]); }
    Searcher(const Searcher&) = delete;
    Searcher& operator=(const Searcher&) = delete;

    // What it can do to the window: 1 find it, 2 show it when it was shown before, 4 raise it, 8
    // anything else.
    int Ask() const {
        EXPECT_EQ(write(asked_[1], "?", 1), 1);
        return child_.Told();
    }

private:
    struct Pipe {
        Pipe() { EXPECT_EQ(pipe(ends), 0); }
        int operator[](int end) const { return ends[end]; }
        int ends[2] = {-1, -1};
    };

    int Search(LPCWSTR name, int told) const {
        close(asked_[1]);
        char question = 0;
        while (read(asked_[0], &question, 1) == 1) {
            const HWND window = FindWindowW(name, nullptr);
            int result = window != nullptr ? 1 : 0;
            result |= ShowWindow(window, SW_SHOW) != FALSE ? 2 : 0;
            result |= SetForegroundWindow(window) != FALSE ? 4 : 0;
            result |=
                DestroyWindow(window) != FALSE || PostMessageW(window, WM_CLOSE, 0, 0) != FALSE ? 8
                                                                                                : 0;
            ForkedChild::Tell(told, result);
        }
        return 0;
    }

    Pipe asked_;
    ForkedChild child_;
};

// Asks the searcher while the windows' messages are served, as a window's owner does all the time.
int ServeAndAsk(const Searcher& searcher) {
    std::atomic<int> told{-2};
    std::thread asking([&] { told = searcher.Ask(); });
    MSG message{};
    while (told == -2) {
        if (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != FALSE) {
            DispatchMessageW(&message);
        }
        std::this_thread::yield();
    }
    asking.join();
    return told;
}

TEST_F(Windows, AnotherProcessFindsShowsAndRaisesAWindowWhileThereIsOneAndNothingElse) {
    const Searcher searcher(TEXT("Only here"));
    Register(TEXT("Only here"));
    const auto ask = [&] { return ServeAndAsk(searcher); };
    EXPECT_EQ(ask(), 0) << "there is no window yet";
    const HWND window = Create(kOverlayStyle, TEXT("Only here"));
    EXPECT_EQ(ask(), 1 | 4) << "it was hidden before";
    EXPECT_TRUE(IsWindowVisible(window));
    EXPECT_EQ(ask(), 1 | 2 | 4);
    const std::string path = std::string(std::getenv("XDG_RUNTIME_DIR")) + "/window-Only-32-here";
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    DestroyWindow(window);
    EXPECT_EQ(ask(), 0);
    EXPECT_NE(stat(path.c_str(), &status), 0);
}

TEST_F(Windows, TheSocketOfAProcessThatCrashedIsReplaced) {
    Register(TEXT("Crashed"));
    {
        ForkedChild crashing([](int told) {
            const HWND window = CreateWindowExW(0, TEXT("Crashed"), nullptr, WS_POPUP, 0, 0, 1, 1,
                                                nullptr, nullptr, nullptr, nullptr);
            ForkedChild::Tell(told, window != nullptr ? 1 : 0);
            pause();
            return 0;
        });
        ASSERT_EQ(crashing.Told(), 1);
        EXPECT_NE(FindWindowW(TEXT("Crashed"), nullptr), nullptr);
        EXPECT_FALSE(ShowWindow(FindWindowW(TEXT("Crashed"), nullptr), SW_SHOW))
            << "its owner looks for no messages, and must not hold us up for ever";
    }
    EXPECT_EQ(FindWindowW(TEXT("Crashed"), nullptr), nullptr);
    const Searcher searcher(TEXT("Crashed"));
    ASSERT_NE(Create(kOverlayStyle, TEXT("Crashed")), nullptr);
    EXPECT_EQ(ServeAndAsk(searcher), 1 | 4);
}

// ---- Menus and the tray -----------------------------------------------------------------------

class Menus : public Windows {
protected:
    void SetUp() override {
        Windows::SetUp();
        owner_ = Create();
        AppendMenuW(menu_, MF_STRING, 1001, TEXT("First"));
        AppendMenuW(menu_, MF_SEPARATOR, 0, nullptr);
        AppendMenuW(menu_, MF_STRING | MF_CHECKED, 1002, TEXT("Second"));
    }
    void TearDown() override {
        EXPECT_TRUE(DestroyMenu(menu_));
        EXPECT_FALSE(DestroyMenu(menu_));
        Windows::TearDown();
    }

    // Opens the menu and hands it to `use` from a message that is posted before.
    int Track(const std::function<void(QMenu&)>& use) {
        handlers[WM_APP] = [&](HWND, WPARAM, LPARAM) {
            auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
            EXPECT_NE(menu, nullptr) << "posted messages do not go on";
            if (menu != nullptr) {
                use(*menu);
            }
            return 0;
        };
        PostMessageW(owner_, WM_APP, 0, 0);
        return TrackPopupMenu(menu_, TPM_RIGHTBUTTON | TPM_BOTTOMALIGN | TPM_RETURNCMD, 300, 400, 0,
                              owner_, nullptr);
    }
    static void Type(QMenu& menu, int key) {
        QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
        QApplication::sendEvent(&menu, &press);
    }

    HMENU menu_ = CreatePopupMenu();
    HWND owner_ = nullptr;
};

TEST_F(Menus, TheRowThatIsChosenIsToldAndNothingWhenTheMenuIsLeft) {
    EXPECT_EQ(Track([](QMenu& menu) {
                  EXPECT_EQ(menu.geometry().bottom() + 1, 400) << "the menu stands on the point";
                  EXPECT_EQ(menu.actions().size(), 3);
                  EXPECT_FALSE(menu.actions()[0]->isChecked());
                  EXPECT_TRUE(menu.actions()[2]->isChecked());
                  Type(menu, Qt::Key_Down);
                  Type(menu, Qt::Key_Down);
                  Type(menu, Qt::Key_Return);
              }),
              1002);
    EXPECT_EQ(Track([](QMenu& menu) { Type(menu, Qt::Key_Escape); }), 0);
}

TEST_F(Menus, ProgramsEndWhileTheirMenuIsOpen) {
    EXPECT_EQ(Track([](QMenu&) { PostQuitMessage(9); }), 0);
    EXPECT_EQ(QApplication::activePopupWidget(), nullptr);
    MSG message{};
    EXPECT_EQ(GetMessageW(&message, nullptr, 0, 0), FALSE);
    EXPECT_EQ(message.wParam, 9U);
}

TEST_F(Menus, TimersGoOnWhileAMenuIsOpen) {
    int ticks = 0;
    handlers[WM_TIMER] = [&](HWND, WPARAM, LPARAM) {
        if (++ticks == 3) {
            QApplication::activePopupWidget()->close();
        }
        return 0;
    };
    SetTimer(owner_, 1, 10, nullptr);
    EXPECT_EQ(Track([](QMenu&) {}), 0);
    KillTimer(owner_, 1);
    EXPECT_EQ(ticks, 3);
}

TEST_F(Windows, ATrayIconIsAddedAndRemovedOnce) {
    NOTIFYICONDATAW icon{};
    icon.cbSize = sizeof icon;
    icon.hWnd = Create();
    icon.uID = 1;
    icon.uFlags = NIF_MESSAGE | NIF_ICON | NIF_TIP;
    EXPECT_FALSE(Shell_NotifyIconW(NIM_ADD, &icon)) << "it has no picture";
    icon.hIcon = LoadIconW(nullptr, IDI_APPLICATION);
    EXPECT_EQ(LoadImageW(nullptr, MAKEINTRESOURCEW(999), IMAGE_ICON, 16, 16, 0), nullptr);
    EXPECT_TRUE(Shell_NotifyIconW(NIM_ADD, &icon));
    EXPECT_FALSE(Shell_NotifyIconW(NIM_ADD, &icon));
    EXPECT_TRUE(Shell_NotifyIconW(NIM_DELETE, &icon));
    EXPECT_FALSE(Shell_NotifyIconW(NIM_DELETE, &icon));
    EXPECT_TRUE(DestroyIcon(icon.hIcon));
    EXPECT_NE(LoadIconW(nullptr, IDI_APPLICATION), nullptr) << "it is everybody's";
}

TEST(MulDivTest, RoundsHalvesAwayFromZeroAndGivesMinusOneForWhatHasNoResult) {
    struct Case {
        int number, numerator, denominator, result;
    };
    constexpr int kMost = 0x7FFFFFFF;
    const Case cases[] = {
        {380, 144, 96, 570},     {1, 1, 2, 1},   {-1, 1, 2, -1},    {1, -1, 2, -1},
        {5, 1, -2, -3},          {-5, 1, -2, 3}, {1, 1, 3, 0},      {2, 1, 3, 1},
        {7, 7, 0, -1},           {0, 5, 0, -1},  {kMost, 2, 1, -1}, {kMost, 1000, 1000, kMost},
        {-kMost - 1, 1, -1, -1},
    };
    for (const Case& one : cases) {
        EXPECT_EQ(MulDiv(one.number, one.numerator, one.denominator), one.result)
            << one.number << " * " << one.numerator << " / " << one.denominator;
    }
}

} // namespace

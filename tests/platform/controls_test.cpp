// The controls as their parent and the user meet them, without a screen.
#include <windows.h>
#include <QClipboard>
#include <QGuiApplication>
#include <commctrl.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct Told {
    UINT message;
    WPARAM wParam;
};
std::vector<Told> told; // what the parent was

LRESULT CALLBACK Parent(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_COMMAND || message == WM_DRAWITEM || message == WM_MOUSEMOVE ||
        message == WM_LBUTTONDOWN) {
        told.push_back({message, wParam});
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

class Controls : public testing::Test {
protected:
    void SetUp() override {
        WNDCLASSEXW windowClass{};
        windowClass.cbSize = sizeof windowClass;
        windowClass.lpfnWndProc = Parent;
        windowClass.lpszClassName = TEXT("Parent");
        RegisterClassExW(&windowClass); // refused from the second time on
        parent_ = CreateWindowExW(WS_EX_TOOLWINDOW, TEXT("Parent"), TEXT(""), WS_POPUP, 100, 100,
                                  200, 100, nullptr, nullptr, nullptr, nullptr);
        ShowWindow(parent_, SW_SHOW);
        told.clear();
    }
    void TearDown() override { DestroyWindow(parent_); }

    HWND Add(LPCWSTR name, DWORD style, int id) {
        return CreateWindowExW(0, name, TEXT(""), WS_CHILD | WS_VISIBLE | style, 10, 20, 80, 30,
                               parent_, reinterpret_cast<HMENU>(LONG_PTR{id}), nullptr, nullptr);
    }
    HWND AddField() { return Add(TEXT("EDIT"), ES_PASSWORD | ES_AUTOHSCROLL, 5); }

    static void Type(HWND window, const std::u16string& text) {
        for (const char16_t unit : text) {
            SendMessageW(window, WM_CHAR, unit, 1);
        }
    }
    static std::u16string TextOf(HWND window) {
        char16_t text[128];
        const int length = GetWindowTextW(window, text, 128);
        return {text, static_cast<std::size_t>(length)};
    }
    static std::size_t CountOf(UINT message, WPARAM wParam) {
        std::size_t count = 0;
        for (const Told& one : told) {
            count += one.message == message && one.wParam == wParam ? 1U : 0U;
        }
        return count;
    }

    HWND parent_ = nullptr;
};

constexpr WPARAM kChanged = MAKEWPARAM(5, EN_CHANGE);

TEST_F(Controls, AFieldTellsOfEachChangeOnce) {
    const HWND field = AddField();
    Type(field, u"a\u4E2D\U0001F600");
    EXPECT_EQ(TextOf(field), u"a\u4E2D\U0001F600");
    EXPECT_EQ(CountOf(WM_COMMAND, kChanged), 3u) << "two halves make one character";
    SetWindowTextW(field, u"set");
    SetWindowTextW(field, u"set");
    EXPECT_EQ(CountOf(WM_COMMAND, kChanged), 5u);
    Type(field, u"\x01\x03\x1b\r\t\x7f");
    EXPECT_EQ(TextOf(field), u"set") << "no control character is written";
}

TEST_F(Controls, AFieldTakesTheFirstLineOfWhatIsPastedAndGivesNothingAway) {
    const HWND field = AddField();
    QClipboard* const clipboard = QGuiApplication::clipboard();
    clipboard->setText(QStringLiteral("one\r\ntwo"));
    SendMessageW(field, WM_PASTE, 0, 0);
    EXPECT_EQ(TextOf(field), u"one");
    SendMessageW(field, EM_SETSEL, 0, -1);
    for (const UINT message : {WM_COPY, WM_CUT}) {
        SendMessageW(field, message, 0, 0);
    }
    Type(field, u"\x03\x18");
    EXPECT_EQ(clipboard->text(), QStringLiteral("one\r\ntwo"));
    EXPECT_EQ(TextOf(field), u"one");
    Type(field, u"\x16"); // Ctrl+V over what is marked
    EXPECT_EQ(TextOf(field), u"one");
}

TEST_F(Controls, AFieldTakesTheLastChangeBack) {
    const HWND field = AddField();
    SetWindowTextW(field, u"stored");
    SendMessageW(field, EM_SETSEL, 0, -1);
    SendMessageW(field, EM_REPLACESEL, TRUE, reinterpret_cast<LPARAM>(u"wrong"));
    EXPECT_EQ(TextOf(field), u"wrong");
    Type(field, u"\x1a");
    EXPECT_EQ(TextOf(field), u"stored");
}

TEST_F(Controls, APressOnAButtonCountsWhenItEndsThere) {
    const HWND button = Add(TEXT("BUTTON"), BS_OWNERDRAW, 7);
    const WPARAM clicked = MAKEWPARAM(7, BN_CLICKED);
    const auto press = [&] { SendMessageW(button, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(5, 5)); };
    press();
    EXPECT_EQ(GetCapture(), button);
    SendMessageW(button, WM_LBUTTONUP, 0, MAKELPARAM(5, 5));
    EXPECT_EQ(CountOf(WM_COMMAND, clicked), 1u);
    EXPECT_EQ(GetCapture(), nullptr);
    press();
    SendMessageW(button, WM_MOUSEMOVE, MK_LBUTTON, MAKELPARAM(500, 5));
    SendMessageW(button, WM_LBUTTONUP, 0, MAKELPARAM(500, 5));
    EXPECT_EQ(CountOf(WM_COMMAND, clicked), 1u);
    SendMessageW(button, WM_KEYDOWN, VK_SPACE, 1);
    SendMessageW(button, WM_KEYUP, VK_SPACE, 1);
    EXPECT_EQ(CountOf(WM_COMMAND, clicked), 2u);
}

TEST_F(Controls, ThePointGoesPastWhatCannotUseIt) {
    const HWND button = Add(TEXT("BUTTON"), BS_OWNERDRAW, 7);
    const POINT inside{115, 125};
    EXPECT_EQ(WindowFromPoint(inside), button);
    EXPECT_FALSE(EnableWindow(button, FALSE));
    EXPECT_EQ(WindowFromPoint(inside), parent_);
    EXPECT_TRUE(EnableWindow(button, TRUE));
    DestroyWindow(button);
    Add(TEXT("STATIC"), SS_CENTER, 8);
    EXPECT_EQ(WindowFromPoint(inside), parent_) << "a label lets it through";
}

LRESULT CALLBACK RemoveItself(HWND window, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR id,
                              DWORD_PTR count) {
    if (message == WM_USER) {
        ++*reinterpret_cast<int*>(count);
        RemoveWindowSubclass(window, RemoveItself, id);
        if (wParam != 0) {
            DestroyWindow(window);
        }
    }
    return DefSubclassProc(window, message, wParam, lParam);
}

TEST_F(Controls, ASubclassMayGoAndTakeTheWindowWithItInTheMiddleOfACall) {
    const HWND button = Add(TEXT("BUTTON"), BS_OWNERDRAW, 7);
    int first = 0;
    int second = 0;
    SetWindowSubclass(button, RemoveItself, 1, reinterpret_cast<DWORD_PTR>(&first));
    SetWindowSubclass(button, RemoveItself, 2, reinterpret_cast<DWORD_PTR>(&second));
    SendMessageW(button, WM_USER, 0, 0);
    SendMessageW(button, WM_USER, 0, 0);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 1);
    SetWindowSubclass(button, RemoveItself, 3, reinterpret_cast<DWORD_PTR>(&first));
    SendMessageW(button, WM_USER, 1, 0);
    EXPECT_EQ(first, 2);
    EXPECT_FALSE(IsWindow(button));
    EXPECT_FALSE(SetWindowSubclass(button, RemoveItself, 4, 0));
}

} // namespace

#include "windowing/qt_input.h"

#include "windowing/input_queue.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QWheelEvent>

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

namespace windowing {

namespace {

// ---- The pointer ------------------------------------------------------------------------------

WORD KeysOf(Qt::MouseButtons buttons, Qt::KeyboardModifiers modifiers) {
    WPARAM keys = 0;
    keys |= buttons.testFlag(Qt::LeftButton) ? MK_LBUTTON : 0;
    keys |= buttons.testFlag(Qt::RightButton) ? MK_RBUTTON : 0;
    keys |= buttons.testFlag(Qt::MiddleButton) ? MK_MBUTTON : 0;
    keys |= modifiers.testFlag(Qt::ShiftModifier) ? MK_SHIFT : 0;
    keys |= modifiers.testFlag(Qt::ControlModifier) ? MK_CONTROL : 0;
    return static_cast<WORD>(keys);
}

POINT OnScreen(const QSinglePointEvent& event) {
    const QPoint point = event.globalPosition().toPoint();
    return {point.x(), point.y()};
}

struct ButtonMessages {
    Qt::MouseButton button;
    UINT press;
    UINT release;
};

constexpr std::array<ButtonMessages, 3> kButtons = {{
    {Qt::LeftButton, WM_LBUTTONDOWN, WM_LBUTTONUP},
    {Qt::RightButton, WM_RBUTTONDOWN, WM_RBUTTONUP},
    {Qt::MiddleButton, WM_MBUTTONDOWN, WM_MBUTTONUP},
}};

void ReportButton(HWND topLevel, const QMouseEvent& event, UINT ButtonMessages::*message,
                  bool second) {
    const auto button =
        std::find_if(kButtons.begin(), kButtons.end(),
                     [&](const ButtonMessages& one) { return one.button == event.button(); });
    if (button != kButtons.end()) {
        PutPointerInput({topLevel, (*button).*message, KeysOf(event.buttons(), event.modifiers()),
                         0, OnScreen(event), second, MessageTimeMs()});
    }
}

// ---- The keyboard -----------------------------------------------------------------------------

struct Key {
    int key; // Qt::Key
    int code;
};

constexpr WORD kNoCode = 0xFF;        // a key that Windows has no code for
constexpr quint32 kFirstScanCode = 8; // what X11 adds to the kernel's codes

constexpr Key kKeys[] = {
    {Qt::Key_Escape, VK_ESCAPE},   {Qt::Key_Tab, VK_TAB},
    {Qt::Key_Backtab, VK_TAB},     {Qt::Key_Backspace, VK_BACK},
    {Qt::Key_Return, VK_RETURN},   {Qt::Key_Enter, VK_RETURN},
    {Qt::Key_Insert, VK_INSERT},   {Qt::Key_Delete, VK_DELETE},
    {Qt::Key_Pause, VK_PAUSE},     {Qt::Key_Home, VK_HOME},
    {Qt::Key_End, VK_END},         {Qt::Key_Left, VK_LEFT},
    {Qt::Key_Up, VK_UP},           {Qt::Key_Right, VK_RIGHT},
    {Qt::Key_Down, VK_DOWN},       {Qt::Key_PageUp, VK_PRIOR},
    {Qt::Key_PageDown, VK_NEXT},   {Qt::Key_Shift, VK_SHIFT},
    {Qt::Key_Control, VK_CONTROL}, {Qt::Key_Alt, VK_MENU},
    {Qt::Key_AltGr, VK_MENU},      {Qt::Key_CapsLock, VK_CAPITAL},
    {Qt::Key_Meta, VK_LWIN},       {Qt::Key_Super_L, VK_LWIN},
    {Qt::Key_Super_R, VK_RWIN},    {Qt::Key_Menu, VK_APPS},
    {Qt::Key_Space, VK_SPACE},
};

constexpr Key kKeypad[] = {
    {Qt::Key_Asterisk, VK_MULTIPLY}, {Qt::Key_Plus, VK_ADD},      {Qt::Key_Minus, VK_SUBTRACT},
    {Qt::Key_Period, VK_DECIMAL},    {Qt::Key_Comma, VK_DECIMAL}, {Qt::Key_Slash, VK_DIVIDE},
};

// Letters of other scripts, and digits that are not the first on their key, go by their place on
// the keyboard, so that Ctrl+A is where it is everywhere.
struct KeyRow {
    quint32 firstScanCode;
    std::string_view codes;
};
constexpr KeyRow kKeyRows[] = {
    {2, "1234567890"}, {16, "QWERTYUIOP"}, {30, "ASDFGHJKL"}, {44, "ZXCVBNM"}};

template <std::size_t Count>
WORD CodeIn(const Key (&keys)[Count], int key) {
    const auto* const found = std::find_if(std::begin(keys), std::end(keys),
                                           [&](const Key& one) { return one.key == key; });
    return found == std::end(keys) ? WORD{0} : static_cast<WORD>(found->code);
}

quint32 ScanCodeOf(const QKeyEvent& event) {
    const quint32 native = event.nativeScanCode();
    return native >= kFirstScanCode ? native - kFirstScanCode : 0;
}

WORD CodeByPlace(quint32 scanCode) {
    for (const KeyRow& row : kKeyRows) {
        const quint32 place = scanCode - row.firstScanCode;
        if (scanCode >= row.firstScanCode && place < row.codes.size()) {
            return static_cast<WORD>(row.codes[place]);
        }
    }
    return kNoCode;
}

WORD CodeOf(const QKeyEvent& event) {
    const int key = event.key();
    const bool keypad = event.modifiers().testFlag(Qt::KeypadModifier);
    if (keypad && key >= Qt::Key_0 && key <= Qt::Key_9) {
        return static_cast<WORD>(VK_NUMPAD0 + (key - Qt::Key_0));
    }
    const WORD known = keypad ? CodeIn(kKeypad, key) : WORD{0};
    const WORD code = known != 0 ? known : CodeIn(kKeys, key);
    if (code != 0) {
        return code;
    }
    if ((key >= Qt::Key_0 && key <= Qt::Key_9) || (key >= Qt::Key_A && key <= Qt::Key_Z)) {
        return static_cast<WORD>(key); // the same numbers
    }
    if (key >= Qt::Key_F1 && key <= Qt::Key_F24) {
        return static_cast<WORD>(VK_F1 + (key - Qt::Key_F1));
    }
    return CodeByPlace(ScanCodeOf(event));
}

// Qt has a character for a key that writes none.
std::u16string TextOf(const QKeyEvent& event, bool down) {
    return down && event.key() != Qt::Key_Delete ? event.text().toStdU16String() : std::u16string();
}

} // namespace

void ReportPress(HWND topLevel, const QMouseEvent& event) {
    ReportButton(topLevel, event, &ButtonMessages::press, false);
}

void ReportSecondPress(HWND topLevel, const QMouseEvent& event) {
    ReportButton(topLevel, event, &ButtonMessages::press, true);
}

void ReportRelease(HWND topLevel, const QMouseEvent& event) {
    ReportButton(topLevel, event, &ButtonMessages::release, false);
}

void ReportMove(HWND topLevel, const QMouseEvent& event) {
    PutPointerInput({topLevel, WM_MOUSEMOVE, KeysOf(event.buttons(), event.modifiers()), 0,
                     OnScreen(event), false, MessageTimeMs()});
}

void ReportWheel(HWND topLevel, const QWheelEvent& event) {
    const auto delta = static_cast<short>(std::clamp(event.angleDelta().y(), -0x7FFF, 0x7FFF));
    if (delta != 0) {
        PutPointerInput({topLevel, WM_MOUSEWHEEL, KeysOf(event.buttons(), event.modifiers()), delta,
                         OnScreen(event), false, MessageTimeMs()});
    }
}

void ReportLeave(HWND topLevel) {
    PutPointerInput({topLevel, WM_MOUSELEAVE, 0, 0, {}, false, MessageTimeMs()});
}

void ReportKey(HWND topLevel, const QKeyEvent& event, bool down) {
    if (!down && event.isAutoRepeat()) {
        return; // a held key goes up once
    }
    const Qt::KeyboardModifiers held = event.modifiers();
    KeyInput input;
    input.source = topLevel;
    input.shift = held.testFlag(Qt::ShiftModifier);
    input.control = held.testFlag(Qt::ControlModifier);
    input.alt = held.testFlag(Qt::AltModifier);
    const bool system = input.alt && !input.control;
    if (down) {
        input.message = system ? WM_SYSKEYDOWN : WM_KEYDOWN;
    } else {
        input.message = system ? WM_SYSKEYUP : WM_KEYUP;
    }
    input.code = CodeOf(event);
    input.text = TextOf(event, down);
    input.repeated = event.isAutoRepeat();
    input.scanCode = static_cast<BYTE>(ScanCodeOf(event));
    input.timeMs = MessageTimeMs();
    PutKeyInput(std::move(input));
}

} // namespace windowing

// Fields for one line of text. What the program sends and what the user does take the same road:
// the window's procedure, and from there the editor that the user sees.
#include "controls/control.h"
#include "controls/controls.h"
#include "controls/edit_field.h"
#include "painting/text_font.h"
#include "windowing/surface.h"
#include "windowing/window_table.h"
#include "windowing/window_text.h"

#include <QPainter>
#include <QPointer>

#include <algorithm>
#include <memory>
#include <string>

namespace controls {

namespace {

using windowing::Window;

// The editor belongs to the surface of the top-level window, and goes with it at the latest.
class Edit final : public Control {
public:
    explicit Edit(const Window& window);
    ~Edit() override;

    void Follow(const Window& window) override;
    void DrawOn(QPainter& painter) override;

    EditField& Field() { return *field_; }
    void SetText(const Window& window, LPCWSTR text);
    // Whether the key did something.
    bool Key(WPARAM key);
    void Character(char16_t unit);
    // What is marked goes to the clipboard, unless it is secret.
    void GiveAway(bool cut);
    LRESULT Selection(DWORD* first, DWORD* last) const;
    void Select(int first, int last);
    void Colour(COLORREF text, COLORREF background);

    bool dragging = false; // marking with the pointer

private:
    QPointer<EditField> field_;
    char16_t highSurrogate_ = 0; // waits for its other half
};

Edit::Edit(const Window& window)
    : field_(new EditField(&windowing::SurfaceOf(window), windowing::TopLevelOf(window).handle,
                           (window.style & ES_PASSWORD) != 0, [handle = window.handle] {
                               if (const auto changed = windowing::Find(handle)) {
                                   Notify(*changed, EN_CHANGE);
                               }
                           })) {
    field_->SetText(QString::fromStdU16String(window.title));
    Follow(window);
}

// Perhaps by somebody who has just been told of a change: then the editor is still at work.
Edit::~Edit() {
    if (field_ != nullptr) {
        field_->disconnect();
        field_->hide();
        field_->deleteLater();
    }
}

void Edit::Follow(const Window& window) {
    const POINT origin = windowing::OriginInTopLevel(window);
    field_->setGeometry(origin.x, origin.y, window.Width(), window.Height());
    field_->setEnabled(window.Enabled());
    field_->setVisible(window.visible && !window.destroying);
}

void Edit::DrawOn(QPainter& painter) {
    field_->render(&painter, field_->pos());
}

// One notification, whether it is another text or not.
void Edit::SetText(const Window& window, LPCWSTR text) {
    field_->SetText(text != nullptr ? QString::fromUtf16(text) : QString());
    Notify(window, EN_CHANGE);
}

bool Edit::Key(WPARAM key) {
    const bool marks = GetKeyState(VK_SHIFT) < 0;
    const bool byWord = GetKeyState(VK_CONTROL) < 0;
    switch (key) {
    case VK_LEFT:
        byWord ? field_->cursorWordBackward(marks) : field_->cursorBackward(marks);
        return true;
    case VK_RIGHT:
        byWord ? field_->cursorWordForward(marks) : field_->cursorForward(marks);
        return true;
    case VK_HOME:
        field_->home(marks);
        return true;
    case VK_END:
        field_->end(marks);
        return true;
    case VK_DELETE:
        field_->del();
        return true;
    case VK_INSERT:
        if (marks) {
            field_->Paste(false);
        }
        return true;
    default:
        return false;
    }
}

// Control characters are what Ctrl and a letter type.
void Edit::Character(char16_t unit) {
    constexpr char16_t kBackspace = 8;
    constexpr char16_t kCopy = 3;
    constexpr char16_t kPaste = 22;
    constexpr char16_t kCut = 24;
    constexpr char16_t kUndo = 26;
    constexpr char16_t kDelete = 127;
    if (QChar::isHighSurrogate(unit)) {
        highSurrogate_ = unit;
        return;
    }
    const char16_t high = std::exchange(highSurrogate_, u'\0');
    if (unit == kBackspace) {
        field_->backspace();
    } else if (unit == kCopy || unit == kCut) {
        GiveAway(unit == kCut);
    } else if (unit == kPaste) {
        field_->Paste(false);
    } else if (unit == kUndo) {
        field_->TakeBack();
    } else if (unit >= u' ' && unit != kDelete) {
        std::u16string text = high != 0 ? std::u16string{high} : std::u16string();
        field_->insert(QString::fromStdU16String(text + unit));
    }
}

void Edit::GiveAway(bool cut) {
    if (field_->echoMode() == QLineEdit::Normal) {
        cut ? field_->cut() : field_->copy();
    }
}

LRESULT Edit::Selection(DWORD* first, DWORD* last) const {
    const bool marked = field_->hasSelectedText();
    const int from = marked ? field_->selectionStart() : field_->cursorPosition();
    const int to = marked ? field_->selectionEnd() : from;
    if (first != nullptr) {
        *first = static_cast<DWORD>(from);
    }
    if (last != nullptr) {
        *last = static_cast<DWORD>(to);
    }
    return MAKELONG(from, to);
}

// -1 for the first: nothing; for the last: to the end.
void Edit::Select(int first, int last) {
    const int length = static_cast<int>(field_->text().size());
    if (first < 0) {
        field_->deselect();
        return;
    }
    const int to = last < 0 ? length : std::min(last, length);
    const int from = std::min(first, length);
    field_->setSelection(from, to - from);
    if (from == to) {
        field_->setCursorPosition(to);
    }
}

void Edit::Colour(COLORREF text, COLORREF background) {
    const auto colour = [](COLORREF value) {
        return QColor(GetRValue(value), GetGValue(value), GetBValue(value));
    };
    QPalette palette = field_->palette();
    palette.setColor(QPalette::Base, colour(background));
    palette.setColor(QPalette::Text, colour(text));
    if (palette != field_->palette()) {
        field_->setPalette(palette);
    }
}

// The parent chooses the colours; a field that cannot be used is coloured like a label.
void Paint(const Window& window, Edit& edit) {
    PAINTSTRUCT paint{};
    HDC context = BeginPaint(window.handle, &paint);
    const UINT message = window.Enabled() ? WM_CTLCOLOREDIT : WM_CTLCOLORSTATIC;
    const RECT client = window.Client();
    FillRect(context, &client, AskForColours(window, message, context));
    edit.Colour(GetTextColor(context), GetBkColor(context));
    EndPaint(window.handle, &paint);
}

QPoint PointOf(LPARAM point) {
    return {static_cast<short>(LOWORD(point)), static_cast<short>(HIWORD(point))};
}

void Press(const Window& window, Edit& edit, WPARAM keys, LPARAM point, bool second) {
    SetFocus(window.handle);
    SetCapture(window.handle);
    edit.dragging = true;
    edit.Field().Press(PointOf(point), (keys & MK_SHIFT) != 0 ? Qt::ShiftModifier : Qt::NoModifier,
                       second);
}

void Release(Edit& edit, LPARAM point) {
    if (edit.dragging) {
        edit.Field().Release(PointOf(point));
        ReleaseCapture();
    }
}

// As everywhere on this desktop, the middle button pastes what is marked somewhere.
void PasteMarked(const Window& window, Edit& edit, LPARAM point) {
    SetFocus(window.handle);
    edit.Field().setCursorPosition(edit.Field().cursorPositionAt(PointOf(point)));
    edit.Field().Paste(true);
}

bool HandlePointer(const Window& window, Edit& edit, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_LBUTTONDOWN:
    case WM_LBUTTONDBLCLK:
        Press(window, edit, wParam, lParam, message == WM_LBUTTONDBLCLK);
        return true;
    case WM_MOUSEMOVE:
        if (edit.dragging) {
            edit.Field().Drag(PointOf(lParam));
        }
        return true;
    case WM_LBUTTONUP:
        Release(edit, lParam);
        return true;
    case WM_CAPTURECHANGED:
        edit.dragging = false;
        return true;
    case WM_MBUTTONUP:
        PasteMarked(window, edit, lParam);
        return true;
    case WM_RBUTTONDOWN:
        SetFocus(window.handle);
        return true;
    case WM_CONTEXTMENU:
        edit.Field().ShowMenu(PointOf(lParam));
        return true;
    default:
        return false;
    }
}

bool HandleClipboard(Edit& edit, UINT message) {
    switch (message) {
    case WM_COPY:
    case WM_CUT:
        edit.GiveAway(message == WM_CUT);
        return true;
    case WM_PASTE:
        edit.Field().Paste(false);
        return true;
    case WM_CLEAR:
        if (edit.Field().hasSelectedText()) {
            edit.Field().del();
        }
        return true;
    case WM_UNDO:
    case EM_UNDO:
        edit.Field().TakeBack();
        return true;
    default:
        return false;
    }
}

LRESULT Handle(Window& window, Edit& edit, UINT message, WPARAM wParam, LPARAM lParam) {
    if (HandlePointer(window, edit, message, wParam, lParam) || HandleClipboard(edit, message)) {
        return 0;
    }
    switch (message) {
    case WM_ERASEBKGND:
        return TRUE; // with the rest
    case WM_PAINT:
        Paint(window, edit);
        return 0;
    case WM_SETFOCUS:
        edit.Field().setFocus(Qt::OtherFocusReason);
        return 0;
    case WM_KILLFOCUS:
        edit.Field().clearFocus();
        return 0;
    case WM_KEYDOWN:
        return edit.Key(wParam) ? 0 : DefWindowProcW(window.handle, message, wParam, lParam);
    case WM_CHAR:
        edit.Character(static_cast<char16_t>(wParam));
        return 0;
    case WM_SETFONT:
        SetFont(window, edit, wParam, lParam);
        edit.Field().setFont(painting::FontOf(edit.font));
        return 0;
    case WM_GETFONT:
        return reinterpret_cast<LRESULT>(edit.font);
    case WM_SETTEXT:
        edit.SetText(window, reinterpret_cast<LPCWSTR>(lParam));
        return TRUE;
    case WM_GETTEXT:
        return windowing::CopyText(edit.Field().text().toStdU16String(), wParam, lParam);
    case WM_GETTEXTLENGTH:
        return edit.Field().text().size();
    case WM_ENABLE:
        InvalidateRect(window.handle, nullptr, TRUE);
        return 0;
    case EM_SETSEL:
        edit.Select(static_cast<int>(wParam), static_cast<int>(lParam));
        return 0;
    case EM_GETSEL:
        return edit.Selection(reinterpret_cast<DWORD*>(wParam), reinterpret_cast<DWORD*>(lParam));
    case EM_REPLACESEL:
        edit.Field().InsertLine(QString::fromUtf16(reinterpret_cast<LPCWSTR>(lParam)));
        return 0;
    default:
        return DefWindowProcW(window.handle, message, wParam, lParam);
    }
}

} // namespace

LRESULT CALLBACK EditProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const auto window = windowing::Find(handle);
    if (window == nullptr) {
        return 0;
    }
    if (message == WM_NCCREATE) {
        window->part = std::make_unique<Edit>(*window);
        return TRUE;
    }
    auto* const edit = static_cast<Edit*>(window->part.get());
    return edit != nullptr ? Handle(*window, *edit, message, wParam, lParam)
                           : DefWindowProcW(handle, message, wParam, lParam);
}

} // namespace controls

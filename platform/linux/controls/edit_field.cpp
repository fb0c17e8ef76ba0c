#include "controls/edit_field.h"

#include "windowing/qt_input.h"

#include <QClipboard>
#include <QContextMenuEvent>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QWheelEvent>

#include <algorithm>
#include <memory>
#include <utility>

namespace controls {

EditField::EditField(QWidget* surface, HWND topLevel, bool password, std::function<void()> onChange)
    : QLineEdit(surface), topLevel_(topLevel) {
    setFrame(false);
    setDragEnabled(false);
    setAcceptDrops(false);
    setFocusPolicy(Qt::NoFocus); // the window's procedure takes the focus
    if (password) {
        setEchoMode(QLineEdit::Password);
        setInputMethodHints(Qt::ImhHiddenText | Qt::ImhSensitiveData | Qt::ImhNoPredictiveText |
                            Qt::ImhNoAutoUppercase);
    }
    connect(this, &QLineEdit::textChanged, this, [this, onChange = std::move(onChange)] {
        before_ = std::exchange(now_, this->text());
        onChange();
    });
}

// ---- From the procedure -----------------------------------------------------------------------

void EditField::SendMouse(QEvent::Type type, QPoint point, Qt::MouseButton button,
                          Qt::MouseButtons buttons, Qt::KeyboardModifiers modifiers) {
    QMouseEvent event(type, point, mapToGlobal(point), button, buttons, modifiers);
    fromProcedure_ = true;
    QCoreApplication::sendEvent(this, &event);
    fromProcedure_ = false;
}

void EditField::Press(QPoint point, Qt::KeyboardModifiers modifiers, bool second) {
    SendMouse(second ? QEvent::MouseButtonDblClick : QEvent::MouseButtonPress, point,
              Qt::LeftButton, Qt::LeftButton, modifiers);
}

void EditField::Drag(QPoint point) {
    SendMouse(QEvent::MouseMove, point, Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
}

void EditField::Release(QPoint point) {
    SendMouse(QEvent::MouseButtonRelease, point, Qt::LeftButton, Qt::NoButton, Qt::NoModifier);
}

void EditField::SetText(const QString& text) {
    blockSignals(true);
    setText(text);
    blockSignals(false);
    now_ = text;
    before_ = text;
    setCursorPosition(0);
}

void EditField::TakeBack() {
    setText(before_);
}

void EditField::InsertLine(const QString& text) {
    const auto end = std::find_if(text.begin(), text.end(), [](QChar character) {
        return character == u'\r' || character == u'\n' || character == u'\0';
    });
    insert(text.left(end - text.begin()));
}

void EditField::Paste(bool marked) {
    const QClipboard* clipboard = QGuiApplication::clipboard();
    if (!marked || clipboard->supportsSelection()) {
        InsertLine(clipboard->text(marked ? QClipboard::Selection : QClipboard::Clipboard));
    }
}

void EditField::ShowMenu(QPoint onScreen) {
    QMenu* const menu = std::make_unique<QMenu>(this).release(); // deletes itself
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->addAction(tr("Undo"), this, &EditField::TakeBack)->setEnabled(before_ != now_);
    menu->addSeparator();
    menu->addAction(tr("Paste"), this, [this] { Paste(false); });
    menu->addAction(tr("Delete"), this, &QLineEdit::del)->setEnabled(hasSelectedText());
    menu->addSeparator();
    menu->addAction(tr("Select All"), this, &QLineEdit::selectAll)->setEnabled(!text().isEmpty());
    menu->popup(onScreen);
}

// ---- From the user ----------------------------------------------------------------------------

void EditField::mousePressEvent(QMouseEvent* event) {
    if (fromProcedure_) {
        QLineEdit::mousePressEvent(event);
    } else {
        windowing::ReportPress(topLevel_, *event);
    }
}

void EditField::mouseReleaseEvent(QMouseEvent* event) {
    if (fromProcedure_) {
        QLineEdit::mouseReleaseEvent(event);
    } else {
        windowing::ReportRelease(topLevel_, *event);
    }
}

void EditField::mouseDoubleClickEvent(QMouseEvent* event) {
    if (fromProcedure_) {
        QLineEdit::mouseDoubleClickEvent(event);
    } else {
        windowing::ReportSecondPress(topLevel_, *event);
    }
}

void EditField::mouseMoveEvent(QMouseEvent* event) {
    if (fromProcedure_) {
        QLineEdit::mouseMoveEvent(event);
    } else {
        windowing::ReportMove(topLevel_, *event);
    }
}

void EditField::wheelEvent(QWheelEvent* event) {
    windowing::ReportWheel(topLevel_, *event);
}

void EditField::keyPressEvent(QKeyEvent* event) {
    windowing::ReportKey(topLevel_, *event, true);
}

void EditField::keyReleaseEvent(QKeyEvent* event) {
    windowing::ReportKey(topLevel_, *event, false);
}

// The control's procedure shows the menu.
void EditField::contextMenuEvent(QContextMenuEvent* event) {
    event->accept();
}

bool EditField::focusNextPrevChild(bool /*next*/) {
    return false;
}

} // namespace controls

// What an edit control is to the user: a line editor of Qt's over the picture of its top-level
// window. What the user does there is reported as input of that window first, and comes back by the
// control's procedure; only input methods write on their own.
#pragma once

#include <windef.h>
#include <QEvent>
#include <QLineEdit>

#include <functional>

namespace controls {

class EditField final : public QLineEdit {
public:
    // In the widget of `topLevel`. `onChange` is called after each change of the text by the user.
    EditField(QWidget* surface, HWND topLevel, bool password, std::function<void()> onChange);

    // As though the user had done it to the editor itself.
    void Press(QPoint point, Qt::KeyboardModifiers modifiers, bool second);
    void Drag(QPoint point);
    void Release(QPoint point);

    // By the program: nothing to be taken back, and nobody is told.
    void SetText(const QString& text);
    // Takes the last change back, and that again the next time. Qt's own would empty a field that
    // shows no text.
    void TakeBack();
    // What was marked is replaced. Only the first line of a text.
    void InsertLine(const QString& text);
    // Of the clipboard, or of what is marked somewhere on the screen.
    void Paste(bool marked);
    void ShowMenu(QPoint onScreen);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    bool focusNextPrevChild(bool next) override;

private:
    void SendMouse(QEvent::Type type, QPoint point, Qt::MouseButton button,
                   Qt::MouseButtons buttons, Qt::KeyboardModifiers modifiers);

    const HWND topLevel_;
    QString now_;
    QString before_;             // the last change
    bool fromProcedure_ = false; // what comes now has been reported
};

} // namespace controls

#pragma once

#include "VantorPlatformGlobal.h"

#include <QPoint>
#include <QSize>
#include <QString>

#include <functional>

class QWidget;

// The platform's message box. `type` 1 is an information box with one button, 3 a
// question with Yes/No; exec() answers 1 for the affirmative button and 0 otherwise.
// With an answering hook installed (tests, command-line tools) nothing is shown: the
// hook answers. Without a hook and without a GUI application, exec() logs and answers 0.
// Called on a worker thread, exec() shows the box on the application's thread and waits
// for the answer there (that thread must be free to run its event loop).
class VANTORPLATFORM_EXPORT LmMessageBox
{
public:
    struct Shown {
        QString title;
        QString text;
        int type = 0;
        int flags = 0;
        bool hadParent = false;
    };
    using AnswerHook = std::function<int(const Shown&)>;

    LmMessageBox(const QString& title, const QString& text, int type, QWidget* parent, int flags);

    int exec();
    void move(const QPoint& pos) { m_pos = pos; m_moved = true; }
    QSize sizeHint() const;

    QString title() const { return m_title; }
    QString text() const { return m_text; }
    int type() const { return m_type; }

    static void setAnswerHook(AnswerHook hook);
    static void clearAnswerHook();

private:
    QString m_title;
    QString m_text;
    int m_type;
    QWidget* m_parent;
    int m_flags;
    QPoint m_pos;
    bool m_moved = false;
};

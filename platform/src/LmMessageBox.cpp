#include "LmMessageBox.h"

#include "PlatformLogging.h"

#include <QApplication>
#include <QMessageBox>
#include <QMutex>
#include <QThread>

namespace {
QMutex g_hookMutex;
LmMessageBox::AnswerHook g_hook;

int showBox(const QString& title, const QString& text, int type, QWidget* parent, bool moved, const QPoint& pos)
{
    QMessageBox box(type == 3 ? QMessageBox::Question : QMessageBox::Information, title, text,
                    type == 3 ? (QMessageBox::Yes | QMessageBox::No) : QMessageBox::Ok, parent);
    if (moved)
        box.move(pos);
    const int answer = box.exec();
    return (answer == QMessageBox::Yes || answer == QMessageBox::Ok) ? 1 : 0;
}
} // namespace

LmMessageBox::LmMessageBox(const QString& title, const QString& text, int type, QWidget* parent, int flags)
    : m_title(title)
    , m_text(text)
    , m_type(type)
    , m_parent(parent)
    , m_flags(flags)
{
}

void LmMessageBox::setAnswerHook(AnswerHook hook)
{
    QMutexLocker locker(&g_hookMutex);
    g_hook = std::move(hook);
}

void LmMessageBox::clearAnswerHook()
{
    setAnswerHook(nullptr);
}

QSize LmMessageBox::sizeHint() const
{
    return QSize(360, 160);
}

int LmMessageBox::exec()
{
    AnswerHook hook;
    {
        QMutexLocker locker(&g_hookMutex);
        hook = g_hook;
    }
    if (hook)
        return hook(Shown{m_title, m_text, m_type, m_flags, m_parent != nullptr});

    if (!qobject_cast<QApplication*>(QCoreApplication::instance())) {
        qCInfo(lcPlatform).noquote() << "LmMessageBox::exec" << m_title << m_text << "(no GUI, not shown)";
        return 0;
    }
    QCoreApplication* app = QCoreApplication::instance();
    if (QThread::currentThread() == app->thread())
        return showBox(m_title, m_text, m_type, m_parent, m_moved, m_pos);
    // Widgets live on the application's thread: a box asked for on a worker (an export
    // from a worker thread, say) is shown there, and the worker waits for the answer.
    int answer = 0;
    QMetaObject::invokeMethod(
        app, [&] { answer = showBox(m_title, m_text, m_type, m_parent, m_moved, m_pos); }, Qt::BlockingQueuedConnection);
    return answer;
}

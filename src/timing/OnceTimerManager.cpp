#include "OnceTimerManager.h"

#include <QPointer>
#include <QReadWriteLock>
#include <QThread>
#include <QTimer>
#include "VantorLogging.h"

// Qt creates, starts and stops a timer only on the thread of the timer's object. A call
// from another thread therefore keeps its answer (the id is written at once, a stop says
// whether the timer exists) and hands the timer work itself to the object's thread, which
// does it when it next handles its events, unless the object is gone by then. Refusing
// such calls would lose the caller's request; doing the work in the calling thread would
// leave a timer outside its object that Qt will not start, stop or delete with it.

OnceTimerManager* OnceTimerManager::instance()
{
    static OnceTimerManager manager;
    return &manager;
}

OnceTimerManager::OnceTimerManager() = default;

OnceTimerManager::~OnceTimerManager() = default;

void OnceTimerManager::OnceTimer(int msec, IOnceTimerBase* obj, QString& timerId)
{
    if (timerId.isEmpty()) {
        QWriteLocker locker(&m_lock);
        QObject* owner = dynamic_cast<QObject*>(obj);
        if (!owner) {
            locker.unlock();
            qCWarning(lcTiming).noquote() << "OnceTimerManager::OnceTimer"
                                          << QStringLiteral("IOnceTimerBase的实现必须同时继承QObject或者其子类，否则无法正确新建和启用定时器");
            return;
        }

        auto it = m_timers.find(obj);
        if (it == m_timers.end()) {
            it = m_timers.insert(obj, QList<QTimer*>());
            // The timers die with their object; forget the object then, so that a later
            // object at the same address starts afresh instead of reaching dead timers.
            connect(owner, &QObject::destroyed, this, [this, obj]() {
                QWriteLocker purge(&m_lock);
                m_timers.remove(obj);
            }, Qt::DirectConnection);
        }
        timerId = QString::number(it->size());
        // The id is taken now; the timer itself is made on the object's thread below.
        it->append(nullptr);
    }

    bool ok = false;
    const int index = timerId.toInt(&ok);
    QObject* owner = nullptr;
    {
        QReadLocker locker(&m_lock);
        const auto it = m_timers.constFind(obj);
        if (!ok || it == m_timers.constEnd() || index < 0 || index >= it->size())
            return;
        QTimer* timer = it->at(index);
        if (timer && timer->thread() == QThread::currentThread()) {
            // An active timer keeps its first deadline.
            if (!timer->isActive())
                timer->start(msec);
            return;
        }
        owner = dynamic_cast<QObject*>(obj);
    }
    onObjectThread(owner, [this, owner, obj, index, msec]() {
        QTimer* timer = ownTimer(owner, obj, index);
        if (timer && !timer->isActive())
            timer->start(msec);
    });
}

bool OnceTimerManager::StopOnceTimer(IOnceTimerBase* obj, const QString& timerId)
{
    bool ok = false;
    const int index = timerId.toInt(&ok);
    if (!obj || !ok)
        return false;

    QObject* owner = nullptr;
    {
        QReadLocker locker(&m_lock);
        const auto it = m_timers.constFind(obj);
        if (it == m_timers.constEnd() || index < 0 || index >= it->size())
            return false;
        QTimer* timer = it->at(index);
        if (timer && timer->thread() == QThread::currentThread()) {
            timer->stop();
            return true;
        }
        owner = dynamic_cast<QObject*>(obj);
    }
    // From another thread the stop is done on the object's thread, after any start this
    // thread asked for before; a timer whose making is still pending has nothing to stop.
    onObjectThread(owner, [this, obj, index]() {
        if (QTimer* timer = timerAt(obj, index))
            timer->stop();
    });
    return true;
}

void OnceTimerManager::onObjectThread(QObject* owner, const std::function<void()>& work)
{
    if (owner->thread() == QThread::currentThread()) {
        work();
        return;
    }
    qCDebug(lcTiming).noquote() << "OnceTimerManager::onObjectThread" << "timer work handed to the thread of"
                                << owner->objectName();
    // Posted events die with their receiver; the guard covers the time between the
    // object's destruction starting and its posted events being dropped.
    QMetaObject::invokeMethod(owner, [guard = QPointer<QObject>(owner), work]() {
        if (guard)
            work();
    }, Qt::QueuedConnection);
}

QTimer* OnceTimerManager::timerAt(IOnceTimerBase* obj, int index)
{
    QReadLocker locker(&m_lock);
    const auto it = m_timers.constFind(obj);
    if (it == m_timers.constEnd() || index < 0 || index >= it->size())
        return nullptr;
    return it->at(index);
}

QTimer* OnceTimerManager::ownTimer(QObject* owner, IOnceTimerBase* obj, int index)
{
    if (QTimer* timer = timerAt(obj, index))
        return timer;

    // Made outside the lock: parenting sends the object a child event, and whatever
    // handles it may well ask for timers itself.
    auto made = new QTimer(owner);
    made->setSingleShot(true);
    const QString id = QString::number(index);
    // The timer is the object's child on the object's thread, so this cannot run after
    // the object died.
    connect(made, &QTimer::timeout, this, [owner, obj, id]() {
        qCDebug(lcTiming).noquote() << "OnceTimerManager::OnceTimer" << "OnceTimer timeout ,obj :" << owner->objectName();
        obj->timeout(id);
    }, Qt::DirectConnection);

    QTimer* timer = nullptr;
    {
        QWriteLocker locker(&m_lock);
        const auto it = m_timers.find(obj);
        if (it != m_timers.end() && index < it->size()) {
            if (!it->at(index))
                (*it)[index] = made;
            timer = it->at(index);
        }
    }
    if (timer != made)
        delete made;
    return timer;
}

#include "OnceTimerManager.h"

#include <QMutexLocker>
#include <QPointer>
#include <QReadWriteLock>
#include <QThread>
#include <QTimer>
#include "VantorLogging.h"

// Qt creates, starts and stops a timer only on the thread of the timer's object. A call
// from another thread therefore keeps its answer (the id is written at once, a stop says
// whether the timer exists) and queues the timer work itself for the object's thread, which
// does it when it next handles its events, unless the object is gone by then. Refusing
// such calls would lose the caller's request; doing the work in the calling thread would
// leave a timer outside its object that Qt will not start, stop or delete with it.
// A call made on the object's thread first carries out whatever other threads queued
// before it, so that a queued start cannot restart a timer stopped after it was asked for,
// nor a queued stop end a timer started after it was asked for.

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
                QMutexLocker queue(&m_queueMutex);
                m_queued.remove(obj);
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
        owner = dynamic_cast<QObject*>(obj);
        if (owner->thread() != QThread::currentThread()) {
            postRequest(owner, obj, {index, false, msec});
            return;
        }
    }
    runQueued(owner, obj);
    startNow(owner, obj, index, msec);
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
        owner = dynamic_cast<QObject*>(obj);
        if (owner->thread() != QThread::currentThread()) {
            // A timer whose making is still queued has nothing to stop yet; the stop comes
            // after that start all the same.
            postRequest(owner, obj, {index, true, 0});
            return true;
        }
    }
    runQueued(owner, obj);
    stopNow(obj, index);
    return true;
}

void OnceTimerManager::postRequest(QObject* owner, IOnceTimerBase* obj, const Request& request)
{
    {
        QMutexLocker queue(&m_queueMutex);
        m_queued[obj].append(request);
    }
    qCDebug(lcTiming).noquote() << "OnceTimerManager::postRequest" << "timer work handed to the thread of"
                                << owner->objectName();
    // Posted events die with their receiver; the guard covers the time between the
    // object's destruction starting and its posted events being dropped.
    QMetaObject::invokeMethod(owner, [this, guard = QPointer<QObject>(owner), obj]() {
        if (guard)
            runQueued(guard, obj);
    }, Qt::QueuedConnection);
}

void OnceTimerManager::runQueued(QObject* owner, IOnceTimerBase* obj)
{
    // One at a time: whatever a request sets off on this thread (making a timer sends the
    // object a child event) finds the later requests still queued, in their order.
    for (;;) {
        Request request{};
        {
            QMutexLocker queue(&m_queueMutex);
            const auto it = m_queued.find(obj);
            if (it == m_queued.end())
                return;
            request = it->takeFirst();
            if (it->isEmpty())
                m_queued.erase(it);
        }
        if (request.stop)
            stopNow(obj, request.index);
        else
            startNow(owner, obj, request.index, request.msec);
    }
}

void OnceTimerManager::startNow(QObject* owner, IOnceTimerBase* obj, int index, int msec)
{
    // An active timer keeps its first deadline.
    QTimer* timer = ownTimer(owner, obj, index);
    if (!timer || timer->isActive())
        return;
    // Qt refuses a negative interval yet counts such a timer as running, so that no later
    // call could start it: it is left stopped instead.
    if (msec < 0) {
        qCWarning(lcTiming).noquote() << "OnceTimerManager::OnceTimer"
                                      << QStringLiteral("negative interval %1: timer %2 of \"%3\" not started")
                                             .arg(msec)
                                             .arg(index)
                                             .arg(owner->objectName());
        return;
    }
    timer->start(msec);
}

void OnceTimerManager::stopNow(IOnceTimerBase* obj, int index)
{
    if (QTimer* timer = timerAt(obj, index))
        timer->stop();
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
        qCDebug(lcTiming).noquote() << "OnceTimer timeout ,obj :" << owner->objectName();
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

#include "OnceTimerManager.h"

#include <QMutexLocker>
#include <QReadWriteLock>
#include "VantorLogging.h"

#include <QTimer>

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

        auto timer = new QTimer(owner);
        timer->setSingleShot(true);
        timer->setInterval(msec);

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
        const QString id = QString::number(it->size());
        timerId = id;
        connect(timer, &QTimer::timeout, this, [owner, obj, id]() {
            qCDebug(lcTiming).noquote() << "OnceTimerManager::OnceTimer" << "OnceTimer timeout ,obj :" << owner->objectName();
            obj->timeout(id);
        }, Qt::DirectConnection);
        it->append(timer);
    }

    QReadLocker locker(&m_lock);
    bool ok = false;
    const int index = timerId.toInt(&ok);
    const auto it = m_timers.constFind(obj);
    if (!ok || it == m_timers.constEnd() || index < 0 || index >= it->size())
        return;
    QTimer* timer = it->at(index);
    if (!timer->isActive())
        timer->start(msec);
}

bool OnceTimerManager::StopOnceTimer(IOnceTimerBase* obj, const QString& timerId)
{
    bool ok = false;
    const int index = timerId.toInt(&ok);
    if (!obj || !ok)
        return false;

    QReadLocker locker(&m_lock);
    const auto it = m_timers.constFind(obj);
    if (it == m_timers.constEnd() || index < 0 || index >= it->size())
        return false;
    it->at(index)->stop();
    return true;
}

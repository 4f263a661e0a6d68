#include "LmEventBus.h"

LmEventBus* LmEventBus::instance()
{
    static LmEventBus* bus = new LmEventBus; // lives as long as the process; events may be put during shutdown
    return bus;
}

void LmEventBus::put(const QString& srcId, const QVariant& type, const QVariant& msg)
{
    QMap<int, Subscriber> subscribers;
    {
        QReadLocker locker(&m_lock);
        subscribers = m_subscribers;
    }
    for (const Subscriber& s : qAsConst(subscribers))
        s(srcId, type, msg);
    emit eventPut(srcId, type, msg);
}

int LmEventBus::subscribe(Subscriber subscriber)
{
    QWriteLocker locker(&m_lock);
    const int id = ++m_nextId;
    m_subscribers.insert(id, std::move(subscriber));
    return id;
}

void LmEventBus::unsubscribe(int id)
{
    QWriteLocker locker(&m_lock);
    m_subscribers.remove(id);
}

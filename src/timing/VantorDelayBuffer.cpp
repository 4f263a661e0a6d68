#include "VantorDelayBuffer.h"

#include <QMutexLocker>
#include <QReadWriteLock>
#include "VantorLogging.h"
#include "VantorUtils.h"

#include <QThread>

VantorDelayBuffer::VantorDelayBuffer(QObject* parent, int interval)
    : QObject(parent)
    , m_interval(interval < 1 ? 1000 : interval)
{
    setObjectName(QStringLiteral("VantorDelayBuffer_") + (parent ? parent->objectName() : QString()));
}

VantorDelayBuffer::~VantorDelayBuffer() = default;

void VantorDelayBuffer::startInterval()
{
    if (QThread::currentThread() == thread()) {
        VantorUtils::OnceTimer(m_interval, this, m_timerId);
        return;
    }
    // The timer may only be started on the buffer's thread. One posted start is enough
    // for a whole burst of appends from other threads.
    if (!m_startPosted.exchange(true))
        QMetaObject::invokeMethod(this, "startPostedInterval", Qt::QueuedConnection);
}

void VantorDelayBuffer::startPostedInterval()
{
    m_startPosted.store(false);
    VantorUtils::OnceTimer(m_interval, this, m_timerId);
}

void VantorDelayBuffer::stopInterval()
{
    if (QThread::currentThread() == thread())
        VantorUtils::StopOnceTimer(this, m_timerId);
    else
        QMetaObject::invokeMethod(this, "stopPostedInterval", Qt::QueuedConnection);
}

void VantorDelayBuffer::stopPostedInterval()
{
    // Values appended since the clear keep their running interval.
    QMutexLocker locker(&m_mutex);
    if (m_items.isEmpty())
        VantorUtils::StopOnceTimer(this, m_timerId);
}

void VantorDelayBuffer::AppendItem(const QVariant& item)
{
    startInterval();
    QMutexLocker locker(&m_mutex);
    m_items.append(item);
}

void VantorDelayBuffer::AppendItems(const QList<QVariant>& items)
{
    startInterval();
    QMutexLocker locker(&m_mutex);
    m_items.append(items);
}

QList<QVariant> VantorDelayBuffer::GetBufferItems()
{
    QMutexLocker locker(&m_mutex);
    QList<QVariant> items;
    items.swap(m_items);
    return items;
}

void VantorDelayBuffer::clear()
{
    QMutexLocker locker(&m_mutex);
    m_items.clear();
    stopInterval();
}

int VantorDelayBuffer::Interval() const
{
    return m_interval;
}

void VantorDelayBuffer::setInterval(int interval)
{
    m_interval = interval;
}

void VantorDelayBuffer::timeout(const QString& timerId)
{
    Q_UNUSED(timerId)
    qCDebug(lcTiming).noquote() << "VantorDelayBuffer::timeout" << objectName();
    emit bufferTimeOut();
}

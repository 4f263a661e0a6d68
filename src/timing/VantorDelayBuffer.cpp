#include "VantorDelayBuffer.h"

#include <QMutexLocker>
#include <QReadWriteLock>
#include "VantorLogging.h"
#include "VantorUtils.h"
#include "timing/DelayBufferAppendSeam.h"

#include <QThread>

namespace {
std::atomic<DelayBufferAppendSeam::Hook> g_appendHook{nullptr};
} // namespace

void DelayBufferAppendSeam::setHook(Hook hook)
{
    g_appendHook.store(hook, std::memory_order_release);
}

VantorDelayBuffer::VantorDelayBuffer(QObject* parent, int interval)
    : QObject(parent)
    , m_interval(interval < 1 ? 1000 : interval)
{
    setObjectName(QStringLiteral("VantorDelayBuffer_") + (parent ? parent->objectName() : QString()));
}

VantorDelayBuffer::~VantorDelayBuffer() = default;

void VantorDelayBuffer::requestInterval()
{
    if (DelayBufferAppendSeam::Hook hook = g_appendHook.load(std::memory_order_acquire))
        hook(this);
    // The timer may only be started on the buffer's thread. One posted start serves every
    // append made before it runs: each append stores its values before it looks at the
    // flag, so a start that is still pending will find them.
    if (!m_startPosted.exchange(true))
        QMetaObject::invokeMethod(this, "startPostedInterval", Qt::QueuedConnection);
}

void VantorDelayBuffer::startPostedInterval()
{
    m_startPosted.store(false);
    // The values that asked for this start may have been taken (or cleared) meanwhile; an
    // interval for an empty buffer would only signal an empty batch.
    QMutexLocker locker(&m_mutex);
    if (!m_items.isEmpty())
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
    AppendItems(QList<QVariant>{item});
}

// On the buffer's own thread the interval is started first and the values stored after;
// from any other thread the values are stored first and the start is then asked of the
// buffer's thread, so that no value can land after the batch it counted on was taken.
void VantorDelayBuffer::AppendItems(const QList<QVariant>& items)
{
    const bool ownThread = QThread::currentThread() == thread();
    if (ownThread)
        VantorUtils::OnceTimer(m_interval, this, m_timerId);
    {
        QMutexLocker locker(&m_mutex);
        m_items.append(items);
    }
    if (!ownThread)
        requestInterval();
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

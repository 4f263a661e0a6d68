#pragma once

#include "VantorGlobal.h"
#include "VantorTypes.h"

#include <QList>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QVariant>

#include <atomic>

// Collects values that arrive in bursts and tells its owner once per interval that a
// batch is ready; the owner then takes the whole batch with GetBufferItems(). The
// interval runs from the first value of a batch: later values do not push it back.
//
// Appending, taking and clearing are safe from any thread. The timer belongs to the
// buffer's thread: calls from other threads hand the timer work to that thread, whose
// event loop must run for the batch to be signalled.
class VANTORUTILS_EXPORT VantorDelayBuffer : public QObject, public IOnceTimerBase
{
    Q_OBJECT
public:
    // Intervals below 1 become 1000 ms. The object name is "VantorDelayBuffer_" followed
    // by the parent's object name.
    explicit VantorDelayBuffer(QObject* parent = nullptr, int interval = 1000);
    ~VantorDelayBuffer() override;

    void AppendItem(const QVariant& item);
    void AppendItems(const QList<QVariant>& items);

    // Hands out every buffered value, oldest first, and leaves the buffer empty.
    QList<QVariant> GetBufferItems();

    // Drops the buffered values and stops a running interval: no signal for them.
    void clear();

    int Interval() const;
    // Takes effect the next time an interval starts; a running one keeps its deadline.
    void setInterval(int interval);

    void timeout(const QString& timerId) override;

signals:
    // A batch is ready; receivers call GetBufferItems().
    void bufferTimeOut();

private:
    // Asks the buffer's thread to start the interval for values stored from another thread.
    void requestInterval();
    void stopInterval();
    // Run on the buffer's thread for calls that came from other threads.
    Q_INVOKABLE void startPostedInterval();
    Q_INVOKABLE void stopPostedInterval();

    QMutex m_mutex;
    int m_interval = 1000;
    QList<QVariant> m_items;
    QString m_timerId;
    std::atomic<bool> m_startPosted{false};
};

#pragma once

#include "VantorTypes.h"

#include <QList>
#include <QMap>
#include <QMutex>
#include <QObject>
#include <QReadWriteLock>

class QTimer;

// The process-wide registry of one-shot timers behind VantorUtils::OnceTimer and
// VantorUtils::StopOnceTimer. Each object gets its own list of timers; a timer's id is
// its index in that list ("0", "1", ...), meaningful only together with its object.
// Both calls may come from any thread; the timers are made, started and stopped on the
// thread of their object, in the order in which the calls were made.
class OnceTimerManager : public QObject
{
    Q_OBJECT
public:
    static OnceTimerManager* instance();

    // Creates the timer when `timerId` is empty (and writes its id), then starts it for
    // `msec` unless it is already running: a running timer keeps its first deadline.
    void OnceTimer(int msec, IOnceTimerBase* obj, QString& timerId);
    // Stops the named timer; true if it was found. The timer stays and can be started again.
    bool StopOnceTimer(IOnceTimerBase* obj, const QString& timerId);

private:
    // A start or a stop asked for from another thread.
    struct Request {
        int index;
        bool stop;
        int msec;
    };

    OnceTimerManager();
    ~OnceTimerManager() override;

    // Queues a request for the object's thread; called under the read lock.
    void postRequest(QObject* owner, IOnceTimerBase* obj, const Request& request);
    // On the object's thread: carries out the requests of other threads still queued for
    // the object, oldest first.
    void runQueued(QObject* owner, IOnceTimerBase* obj);
    void startNow(QObject* owner, IOnceTimerBase* obj, int index, int msec);
    void stopNow(IOnceTimerBase* obj, int index);
    QTimer* timerAt(IOnceTimerBase* obj, int index);
    // The timer of that index, made on its first start; only on the object's thread.
    QTimer* ownTimer(QObject* owner, IOnceTimerBase* obj, int index);

    QReadWriteLock m_lock;
    QMap<IOnceTimerBase*, QList<QTimer*>> m_timers;
    // Requests from other threads not yet carried out, per object; taken after m_lock.
    QMutex m_queueMutex;
    QMap<IOnceTimerBase*, QList<Request>> m_queued;
};

#pragma once

#include "VantorTypes.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QReadWriteLock>

#include <functional>

class QTimer;

// The process-wide registry of one-shot timers behind VantorUtils::OnceTimer and
// VantorUtils::StopOnceTimer. Each object gets its own list of timers; a timer's id is
// its index in that list ("0", "1", ...), meaningful only together with its object.
// Both calls may come from any thread; the timers are made, started and stopped on the
// thread of their object.
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
    OnceTimerManager();
    ~OnceTimerManager() override;

    // Runs `work` now when called on the object's thread, otherwise posts it there (it is
    // dropped if the object is destroyed first).
    void onObjectThread(QObject* owner, const std::function<void()>& work);
    QTimer* timerAt(IOnceTimerBase* obj, int index);
    // The timer of that index, made on its first start; only on the object's thread.
    QTimer* ownTimer(QObject* owner, IOnceTimerBase* obj, int index);

    QReadWriteLock m_lock;
    QMap<IOnceTimerBase*, QList<QTimer*>> m_timers;
};

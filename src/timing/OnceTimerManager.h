#pragma once

#include "VantorTypes.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QReadWriteLock>

class QTimer;

// The process-wide registry of one-shot timers behind VantorUtils::OnceTimer and
// VantorUtils::StopOnceTimer. Each object gets its own list of timers; a timer's id is
// its index in that list ("0", "1", ...), meaningful only together with its object.
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

    QReadWriteLock m_lock;
    QMap<IOnceTimerBase*, QList<QTimer*>> m_timers;
};

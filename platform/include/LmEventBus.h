#pragma once

#include "VantorPlatformGlobal.h"

#include <QMap>
#include <QObject>
#include <QReadWriteLock>
#include <QVariant>

#include <functional>

// The client's in-process event bus. Presenters put event envelopes on it; tests and
// tools subscribe, by signal or by callback (called on the putting thread, in the order
// they subscribed, before the signal).
class VANTORPLATFORM_EXPORT LmEventBus : public QObject
{
    Q_OBJECT
public:
    using Subscriber = std::function<void(const QString& srcId, const QVariant& type, const QVariant& msg)>;

    static LmEventBus* instance();

    void put(const QString& srcId, const QVariant& type, const QVariant& msg);

    int subscribe(Subscriber subscriber);
    void unsubscribe(int id);

signals:
    void eventPut(const QString& srcId, const QVariant& type, const QVariant& msg);

private:
    LmEventBus() = default;

    QReadWriteLock m_lock;
    QMap<int, Subscriber> m_subscribers; // by id, so in the order of subscription
    int m_nextId = 0;
};

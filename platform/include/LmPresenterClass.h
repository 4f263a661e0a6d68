#pragma once

#include "VantorPlatformGlobal.h"

#include <QMutex>
#include <QObject>
#include <QVariant>

#include <memory>

class CMessageCommon;
class CEventMessageCommon;
class IPresenterTransport;

// A plug-in's link to the trading servers and to the client's event bus. Sends go through
// the transport of the gateway address (shared by all presenters of the process) unless
// the presenter was given a transport of its own.
class VANTORPLATFORM_EXPORT LmPresenterClass : public QObject
{
    Q_OBJECT
public:
    explicit LmPresenterClass(const QString& name, QObject* parent = nullptr, int threadType = 0);
    ~LmPresenterClass() override;

    QString pluginPid() const { return m_pluginPid; }
    int threadType() const { return m_threadType; }

    // Sends the message and blocks until the reply (0), a time-out (1) or a failure that
    // still carries a reply message (2). Takes ownership of `msg`; null answers 2.
    // timeout 0 means the configured default.
    int sendRequest_Sync_Block(CMessageCommon* msg, QVariant& reply, unsigned long timeout);

    // Puts the event on the client's event bus. Takes ownership of `event`.
    void PutEvent(const QString& srcId, CEventMessageCommon* event);

    // Pins this presenter to a transport (null: back to the shared one of the address).
    void setTransport(std::shared_ptr<IPresenterTransport> transport);
    std::shared_ptr<IPresenterTransport> transport() const;

signals:
    // A message that the gateway pushed (order state changes and the like).
    void pushReceived(const QString& type, const QVariant& msg);

protected:
    // Listening to pushReceived attaches the presenter to its transport at once, so that
    // pushes arrive before the presenter sends anything itself.
    void connectNotify(const QMetaMethod& signal) override;

private:
    std::shared_ptr<IPresenterTransport> resolveTransport() const;

    QString m_pluginPid;
    int m_threadType = 0;
    mutable QMutex m_mutex;
    std::shared_ptr<IPresenterTransport> m_own;
    mutable std::shared_ptr<IPresenterTransport> m_connected;
    mutable QMetaObject::Connection m_pushConnection;
    // Hands the transport's pushes to this presenter; cleared under its lock on
    // destruction, so that no push is delivered to a presenter that is gone.
    struct PushRelay;
    std::shared_ptr<PushRelay> m_relay;
};

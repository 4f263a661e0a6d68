#pragma once

#include "VantorPlatformGlobal.h"

#include <QObject>
#include <QString>
#include <QVariant>

// What carries a presenter's requests to a gateway. The TCP transport talks to a real
// gateway; the scripted transport answers from a script in tests. Implementations are
// thread-safe: callers on many threads send at once and each waits for its own reply.
class VANTORPLATFORM_EXPORT IPresenterTransport : public QObject
{
    Q_OBJECT
public:
    enum Result { Reply = 0, Timeout = 1, Failure = 2 };

    explicit IPresenterTransport(QObject* parent = nullptr);
    ~IPresenterTransport() override;

    // Sends one request and blocks until its reply, the time-out or a failure.
    // timeoutMs is already resolved (never 0). On Failure `reply` holds a packed message
    // whose head row carries textDescription.
    virtual int request(const QString& type, const QString& srcId, const QVariant& msg, QVariant& reply,
                        unsigned long timeoutMs) = 0;

signals:
    // A message that the gateway pushed without a request.
    void pushed(const QString& type, const QVariant& msg);
};

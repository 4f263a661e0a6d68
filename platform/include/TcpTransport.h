#pragma once

#include "IPresenterTransport.h"

#include <QAtomicInteger>

#include <memory>

class PendingRequests;
class TcpTransportLink;

// Carries presenter requests to a gateway over TCP. One connection per transport: callers
// on any thread write their requests to it themselves, one whole frame at a time, and each
// waits for the reply that carries its own request id, which a private reading thread
// hands to that caller alone. The connection is opened on the first send and opened again
// on the next send after it was lost. Gateway pushes are emitted as pushed(), from the
// reading thread.
class VANTORPLATFORM_EXPORT TcpTransport : public IPresenterTransport
{
    Q_OBJECT
public:
    // address is "host:port".
    explicit TcpTransport(const QString& address, QObject* parent = nullptr);
    ~TcpTransport() override;

    QString address() const { return m_address; }

    int request(const QString& type, const QString& srcId, const QVariant& msg, QVariant& reply,
                unsigned long timeoutMs) override;

    // Splits "host:port"; false when either part is missing or the port is not 1-65535.
    static bool parseAddress(const QString& address, QString* host, quint16* port);

private:
    QString m_address;
    QString m_host;
    quint16 m_port = 0;
    bool m_valid = false;
    QAtomicInteger<qint64> m_nextId{0};
    std::unique_ptr<PendingRequests> m_pending;
    std::unique_ptr<TcpTransportLink> m_link;
};

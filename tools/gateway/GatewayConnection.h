#pragma once

#include <WireFrameCodec.h>

#include <QObject>

#include <functional>

class QTcpSocket;

// One client of the gateway: splits the bytes it sends into frames, hands each request
// to the gateway and writes replies and pushes back. A malformed or oversized frame
// closes this connection only.
class GatewayConnection : public QObject
{
    Q_OBJECT
public:
    using Handler = std::function<void(GatewayConnection*, WireFrame&)>;

    GatewayConnection(QTcpSocket* socket, Handler handler, QObject* parent = nullptr);

    void send(const QByteArray& frame);
    // Closes the connection at once, without answering what is in flight.
    void drop();
    QString peer() const { return m_peer; }

signals:
    void closed(GatewayConnection* connection);

private:
    void onReadyRead();

    QTcpSocket* m_socket;
    Handler m_handler;
    WireFrameCodec m_decoder;
    QString m_peer;
    QByteArray m_readBuffer;
    bool m_closed = false;
};

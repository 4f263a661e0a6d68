#pragma once

#include "WireFrameCodec.h"

#include <QAbstractSocket>
#include <QObject>
#include <QVector>

#include <memory>
#include <mutex>

class PendingRequests;
class QTcpSocket;

// The I/O-thread side of a TcpTransport: owns the socket, writes the frames that callers
// hand over, splits what arrives into frames and completes the waiting requests.
class TcpTransportLink : public QObject
{
    Q_OBJECT
public:
    TcpTransportLink(const QString& host, quint16 port, std::shared_ptr<PendingRequests> pending);

    // Any thread: hands a frame over to the I/O thread. True when the caller is to post a
    // call of drain(); frames handed over meanwhile go with the same call.
    bool enqueue(qint64 id, const QByteArray& frame);
    // Runs on the I/O thread: sends what was handed over.
    Q_INVOKABLE void drain();
    // Runs on the I/O thread. Opens the connection first when there is none.
    void send(qint64 id, const QByteArray& frame);
    // Closes the connection; requests in flight fail. Runs on the I/O thread.
    void shutdown();

signals:
    void pushed(const QString& type, const QVariant& msg);

private:
    void onConnected();
    void onReadyRead();
    void onError(QAbstractSocket::SocketError error);
    void onDisconnected();
    void dropConnection(const QString& reason);
    void failQueued(const QString& reason);
    void dispatch(WireFrame& frame);
    QString endpoint() const;

    QString m_host;
    quint16 m_port;
    std::shared_ptr<PendingRequests> m_pending;
    QTcpSocket* m_socket = nullptr;
    WireFrameCodec m_decoder;
    QVector<QPair<qint64, QByteArray>> m_queued; // waiting for the connection
    QByteArray m_readBuffer;
    bool m_dropping = false;
    std::mutex m_inboxMutex; // a standard mutex, so that race checkers see the hand-over
    QVector<QPair<qint64, QByteArray>> m_inbox;
    bool m_drainPosted = false;
};

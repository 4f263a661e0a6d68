#include "GatewayConnection.h"

#include "GatewayLogging.h"

#include <QHostAddress>
#include <QTcpSocket>

GatewayConnection::GatewayConnection(QTcpSocket* socket, Handler handler, QObject* parent)
    : QObject(parent)
    , m_socket(socket)
    , m_handler(std::move(handler))
    , m_peer(QStringLiteral("%1:%2").arg(socket->peerAddress().toString()).arg(socket->peerPort()))
{
    m_socket->setParent(this);
    m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    connect(m_socket, &QTcpSocket::readyRead, this, &GatewayConnection::onReadyRead);
    connect(m_socket, &QTcpSocket::disconnected, this, [this] {
        if (!m_closed) {
            m_closed = true;
            emit closed(this);
        }
    });
}

void GatewayConnection::send(const QByteArray& frame)
{
    if (!m_closed) {
        m_socket->write(frame);
        m_socket->flush(); // out now rather than on the next pass of the event loop
    }
}

void GatewayConnection::drop()
{
    if (m_closed)
        return;
    m_closed = true;
    m_socket->abort();
    emit closed(this);
}

void GatewayConnection::onReadyRead()
{
    for (;;) {
        const qint64 available = m_socket->bytesAvailable();
        if (available <= 0)
            break;
        if (m_readBuffer.size() < available)
            m_readBuffer.resize(int(qMin<qint64>(available, 4 * 1024 * 1024)));
        const qint64 got = m_socket->read(m_readBuffer.data(), m_readBuffer.size());
        if (got <= 0)
            break;
        m_decoder.append(m_readBuffer.constData(), got);
    }
    WireFrame frame;
    while (!m_closed) {
        const auto status = m_decoder.next(frame);
        if (status == WireFrameCodec::NeedMore)
            return;
        if (status == WireFrameCodec::Error) {
            qCCritical(lcGateway).noquote() << "GatewayConnection::onReadyRead"
                                            << QStringLiteral("客户端%1发来的数据无法解析，断开连接：%2")
                                                   .arg(m_peer, m_decoder.errorString());
            drop();
            return;
        }
        m_handler(this, frame);
    }
}

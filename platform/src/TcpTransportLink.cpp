#include "TcpTransportLink.h"

#include "IPresenterTransport.h"
#include "PendingRequests.h"
#include "PlatformLogging.h"
#include "ScriptedTransport.h"
#include "ZentraFields.h"

#include <QTcpSocket>

namespace {
QString socketErrorText(QAbstractSocket::SocketError error)
{
    switch (error) {
    case QAbstractSocket::ConnectionRefusedError:
        return QStringLiteral("连接被拒绝");
    case QAbstractSocket::RemoteHostClosedError:
        return QStringLiteral("连接被对方关闭");
    case QAbstractSocket::HostNotFoundError:
        return QStringLiteral("找不到主机");
    case QAbstractSocket::SocketTimeoutError:
        return QStringLiteral("连接超时");
    case QAbstractSocket::NetworkError:
        return QStringLiteral("网络错误");
    default:
        return QStringLiteral("网络错误（%1）").arg(int(error));
    }
}
} // namespace

TcpTransportLink::TcpTransportLink(const QString& host, quint16 port, std::shared_ptr<PendingRequests> pending)
    : m_host(host)
    , m_port(port)
    , m_pending(std::move(pending))
    , m_socket(new QTcpSocket(this))
{
    connect(m_socket, &QTcpSocket::connected, this, &TcpTransportLink::onConnected);
    connect(m_socket, &QTcpSocket::readyRead, this, &TcpTransportLink::onReadyRead);
    connect(m_socket, &QTcpSocket::errorOccurred, this, &TcpTransportLink::onError);
    connect(m_socket, &QTcpSocket::disconnected, this, &TcpTransportLink::onDisconnected);
}

QString TcpTransportLink::endpoint() const
{
    return QStringLiteral("%1:%2").arg(m_host).arg(m_port);
}

bool TcpTransportLink::enqueue(qint64 id, const QByteArray& frame)
{
    std::lock_guard<std::mutex> lock(m_inboxMutex);
    m_inbox.append({id, frame});
    return !std::exchange(m_drainPosted, true);
}

void TcpTransportLink::drain()
{
    QVector<QPair<qint64, QByteArray>> inbox;
    {
        std::lock_guard<std::mutex> lock(m_inboxMutex);
        inbox.swap(m_inbox);
        m_drainPosted = false;
    }
    for (const auto& item : inbox)
        send(item.first, item.second);
}

void TcpTransportLink::send(qint64 id, const QByteArray& frame)
{
    if (m_socket->state() == QAbstractSocket::ConnectedState) {
        if (m_pending->markSent(id)) {
            m_socket->write(frame);
            m_socket->flush(); // out now rather than on the next pass of the event loop
        }
        return;
    }
    m_queued.append({id, frame});
    if (m_socket->state() == QAbstractSocket::UnconnectedState) {
        qCDebug(lcPlatform).noquote() << "TcpTransportLink::send" << QStringLiteral("连接交易网关%1").arg(endpoint());
        m_decoder.clear();
        m_socket->connectToHost(m_host, m_port);
    }
}

void TcpTransportLink::onConnected()
{
    qCInfo(lcPlatform).noquote() << "TcpTransportLink::onConnected" << QStringLiteral("已连接交易网关%1").arg(endpoint());
    m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    const auto queued = std::exchange(m_queued, {});
    for (const auto& item : queued) {
        if (m_pending->markSent(item.first))
            m_socket->write(item.second);
    }
}

void TcpTransportLink::onReadyRead()
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
    for (;;) {
        const auto status = m_decoder.next(frame);
        if (status == WireFrameCodec::NeedMore)
            return;
        if (status == WireFrameCodec::Error) {
            qCCritical(lcPlatform).noquote() << "TcpTransportLink::onReadyRead"
                                             << QStringLiteral("交易网关%1发来的数据无法解析，断开连接：%2")
                                                    .arg(endpoint(), m_decoder.errorString());
            dropConnection(QStringLiteral("交易网关发来的数据无法解析"));
            return;
        }
        dispatch(frame);
        if (m_socket->state() != QAbstractSocket::ConnectedState)
            return;
    }
}

void TcpTransportLink::dispatch(WireFrame& frame)
{
    if (frame.kind == QLatin1String(WireKind::reply)) {
        m_pending->complete(frame.id, IPresenterTransport::Reply, frame.msg);
    } else if (frame.kind == QLatin1String(WireKind::failure)) {
        const QVariantMap head = frame.msg.toList().value(0).toMap();
        if (head.value(QLatin1String(Zentra_Fields::System::textDescription)).toString().isEmpty())
            frame.msg = ScriptedTransport::failureReply(QStringLiteral("交易网关处理请求失败"));
        m_pending->complete(frame.id, IPresenterTransport::Failure, frame.msg);
    } else if (frame.kind == QLatin1String(WireKind::push)) {
        emit pushed(frame.type, frame.msg);
    } else {
        qCDebug(lcPlatform).noquote() << "TcpTransportLink::dispatch" << QStringLiteral("忽略类别为%1的帧").arg(frame.kind);
    }
}

void TcpTransportLink::onError(QAbstractSocket::SocketError error)
{
    const QString why = socketErrorText(error);
    if (!m_queued.isEmpty() && m_socket->state() != QAbstractSocket::ConnectedState) {
        qCInfo(lcPlatform).noquote() << "TcpTransportLink::onError"
                                     << QStringLiteral("无法连接交易网关%1：%2").arg(endpoint(), why);
        failQueued(QStringLiteral("无法连接交易网关%1：%2").arg(endpoint(), why));
    }
    dropConnection(QStringLiteral("与交易网关%1的连接已断开：%2").arg(endpoint(), why));
}

void TcpTransportLink::onDisconnected()
{
    dropConnection(QStringLiteral("与交易网关%1的连接已断开").arg(endpoint()));
}

void TcpTransportLink::dropConnection(const QString& reason)
{
    // Requests written to the lost connection cannot be answered any more.
    m_pending->failSent(ScriptedTransport::failureReply(reason), IPresenterTransport::Failure);
    failQueued(reason);
    m_decoder.clear();
    if (m_socket->state() != QAbstractSocket::UnconnectedState && !m_dropping) {
        qCInfo(lcPlatform).noquote() << "TcpTransportLink::dropConnection" << reason;
        m_dropping = true; // abort() reports the disconnection at once
        m_socket->abort();
        m_dropping = false;
    }
}

void TcpTransportLink::failQueued(const QString& reason)
{
    const auto queued = std::exchange(m_queued, {});
    const QVariant reply = ScriptedTransport::failureReply(reason);
    for (const auto& item : queued)
        m_pending->complete(item.first, IPresenterTransport::Failure, reply);
}

void TcpTransportLink::shutdown()
{
    dropConnection(QStringLiteral("与交易网关%1的连接已关闭").arg(endpoint()));
}

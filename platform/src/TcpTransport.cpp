#include "TcpTransport.h"

#include "PendingRequests.h"
#include "PlatformLogging.h"
#include "ScriptedTransport.h"
#include "TcpTransportLink.h"
#include "VantorFields.h"
#include "WireFrameCodec.h"
#include "ZentraFields.h"

#include <QDeadlineTimer>

#include <limits>

namespace {
QVariant timeoutReply()
{
    QVariantMap head;
    head.insert(QLatin1String(Zentra_Fields::System::requestExeStatus), QLatin1String(Vantor_Values::RequestExeStatus::timeout));
    head.insert(QLatin1String(Zentra_Fields::System::textDescription), QStringLiteral("等待交易网关应答超时"));
    return QVariantList{head};
}
} // namespace

TcpTransport::TcpTransport(const QString& address, QObject* parent)
    : IPresenterTransport(parent)
    , m_address(address)
    , m_pending(std::make_unique<PendingRequests>())
{
    m_valid = parseAddress(address, &m_host, &m_port);
    if (!m_valid) {
        qCWarning(lcPlatform).noquote() << "TcpTransport::TcpTransport" << QStringLiteral("交易网关地址无效：%1").arg(address);
        return;
    }
    m_link = std::make_unique<TcpTransportLink>(m_host, m_port, *m_pending);
    connect(m_link.get(), &TcpTransportLink::pushed, this, &IPresenterTransport::pushed, Qt::DirectConnection);
}

TcpTransport::~TcpTransport()
{
    if (m_link && m_link->isReadingThread()) {
        // A push listener let the transport go, on the very thread that delivers the push.
        TcpTransportLink::releaseFromReadingThread(std::move(m_link), std::move(m_pending));
        return;
    }
    // Closes the connection and ends the reading thread before the requests go.
    m_link.reset();
}

bool TcpTransport::parseAddress(const QString& address, QString* host, quint16* port)
{
    const int colon = address.lastIndexOf(QLatin1Char(':'));
    if (colon <= 0)
        return false;
    QString h = address.left(colon).trimmed();
    if (h.startsWith(QLatin1Char('[')) && h.endsWith(QLatin1Char(']')))
        h = h.mid(1, h.size() - 2);
    bool ok = false;
    const uint p = address.mid(colon + 1).trimmed().toUInt(&ok);
    if (!ok || p == 0 || p > 65535 || h.isEmpty())
        return false;
    if (host)
        *host = h;
    if (port)
        *port = quint16(p);
    return true;
}

int TcpTransport::request(const QString& type, const QString& srcId, const QVariant& msg, QVariant& reply,
                          unsigned long timeoutMs)
{
    if (!m_valid) {
        reply = ScriptedTransport::failureReply(QStringLiteral("交易网关地址无效：%1").arg(m_address));
        return Failure;
    }
    if (m_link->isReadingThread()) {
        reply = ScriptedTransport::failureReply(QStringLiteral("不能在网络线程中同步发送请求"));
        return Failure;
    }
    const qint64 id = ++m_nextId;
    // Encoding happens on the caller's thread, so that many callers encode at once.
    const QByteArray frame = WireFrameCodec::encode(id, QLatin1String(WireKind::request), type, srcId,
                                                    WireFrameCodec::encodeMessage(msg));
    if (frame.size() - 4 > WireFrameCodec::maxFrameSize) {
        // The gateway would close the shared connection on it, failing everyone's requests.
        const QString why = QStringLiteral("请求消息过大（%1字节），超过上限%2字节").arg(frame.size() - 4).arg(WireFrameCodec::maxFrameSize);
        qCWarning(lcPlatform).noquote() << "TcpTransport::request" << QStringLiteral("功能号%1：%2").arg(type, why);
        reply = ScriptedTransport::failureReply(why);
        return Failure;
    }
    const qint64 waitMs = qint64(qMin<unsigned long>(timeoutMs, static_cast<unsigned long>(std::numeric_limits<int>::max())));
    const QDeadlineTimer deadline(waitMs);
    auto entry = m_pending->add(id);
    QString why;
    switch (m_link->send(entry, frame, deadline, &why)) {
    case TcpTransportLink::Sent:
        break;
    case TcpTransportLink::NotConnected:
        // The request never left: the gateway could not be reached.
        m_pending->remove(id);
        reply = ScriptedTransport::failureReply(why);
        return Failure;
    case TcpTransportLink::TimedOut:
    case TcpTransportLink::Broken:
        // The connection broke under the request (or could not take it in time); the reading
        // thread may have failed it meanwhile, but this caller answers for itself.
        m_pending->remove(id);
        if (!deadline.hasExpired()) {
            reply = ScriptedTransport::failureReply(why);
            return Failure;
        }
        qCInfo(lcPlatform).noquote() << "TcpTransport::request" << QStringLiteral("功能号%1：%2").arg(type, why);
        reply = timeoutReply();
        return Timeout;
    }

    if (m_pending->wait(id, entry, qMax<qint64>(0, deadline.remainingTime()))) {
        reply = std::move(entry->reply);
        return entry->result;
    }
    reply = timeoutReply();
    return Timeout;
}

#include "TcpTransport.h"

#include "PendingRequests.h"
#include "PlatformLogging.h"
#include "ScriptedTransport.h"
#include "TcpTransportLink.h"
#include "VantorFields.h"
#include "WireFrameCodec.h"
#include "ZentraFields.h"

#include <QThread>

#include <limits>

TcpTransport::TcpTransport(const QString& address, QObject* parent)
    : IPresenterTransport(parent)
    , m_address(address)
    , m_pending(std::make_shared<PendingRequests>())
{
    m_valid = parseAddress(address, &m_host, &m_port);
    if (!m_valid) {
        qCWarning(lcPlatform).noquote() << "TcpTransport::TcpTransport" << QStringLiteral("交易网关地址无效：%1").arg(address);
        return;
    }
    m_thread = new QThread;
    m_thread->setObjectName(QStringLiteral("gateway-io"));
    m_link = new TcpTransportLink(m_host, m_port, m_pending);
    m_link->moveToThread(m_thread);
    connect(m_link, &TcpTransportLink::pushed, this, &IPresenterTransport::pushed, Qt::DirectConnection);
    // The link goes with its thread, on its thread. This needs no posted event, so it also
    // works when the transport is destroyed after the application object.
    TcpTransportLink* link = m_link;
    std::atomic<bool>* linkGone = &m_linkGone;
    connect(m_thread, &QThread::finished, m_thread, [link, linkGone] {
        link->shutdown();
        delete link;
        linkGone->store(true, std::memory_order_release);
    }, Qt::DirectConnection);
    m_thread->start();
}

TcpTransport::~TcpTransport()
{
    if (!m_thread)
        return;
    m_thread->quit();
    m_thread->wait();
    // Orders the link's end before the thread object goes, in a way race checkers see.
    while (!m_linkGone.load(std::memory_order_acquire))
        QThread::yieldCurrentThread();
    delete m_thread;
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
    if (QThread::currentThread() == m_thread) {
        reply = ScriptedTransport::failureReply(QStringLiteral("不能在网络线程中同步发送请求"));
        return Failure;
    }
    const qint64 id = ++m_nextId;
    // Encoding happens on the caller's thread, so that many callers encode at once.
    const QByteArray frame = WireFrameCodec::encode(id, QLatin1String(WireKind::request), type, srcId,
                                                    WireFrameCodec::encodeMessage(msg));
    auto entry = m_pending->add(id);
    if (m_link->enqueue(id, frame))
        QMetaObject::invokeMethod(m_link, "drain", Qt::QueuedConnection);

    const qint64 waitMs = qint64(qMin<unsigned long>(timeoutMs, static_cast<unsigned long>(std::numeric_limits<int>::max())));
    bool sent = false;
    if (m_pending->wait(id, entry, waitMs, &sent)) {
        reply = std::move(entry->reply);
        return entry->result;
    }
    if (!sent) {
        // The request never left: the gateway could not be reached in time.
        qCInfo(lcPlatform).noquote() << "TcpTransport::request"
                                     << QStringLiteral("连接交易网关%1超时，功能号%2").arg(m_address, type);
        reply = ScriptedTransport::failureReply(QStringLiteral("连接交易网关%1超时").arg(m_address));
        return Failure;
    }
    QVariantMap head;
    head.insert(QLatin1String(Zentra_Fields::System::requestExeStatus), QLatin1String(Vantor_Values::RequestExeStatus::timeout));
    head.insert(QLatin1String(Zentra_Fields::System::textDescription), QStringLiteral("等待交易网关应答超时"));
    reply = QVariantList{head};
    return Timeout;
}

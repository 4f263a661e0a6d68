#include "GatewayCore.h"

#include "GatewayConnection.h"
#include "GatewayLogging.h"
#include "GatewayReply.h"

#include <WireFrameCodec.h>
#include <ZentraFields.h>

#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimer>

namespace {
namespace OS = Zentra_Values::OrderStatus;
// The states a placed order goes through, each pushed to the client that placed it.
const char* const orderStates[] = {OS::pendingNew, OS::newOrder, OS::partiallyFilled, OS::filled};
constexpr int orderStateCount = 4;
} // namespace

GatewayCore::GatewayCore(const GatewayOptions& options)
    : m_options(options)
    , m_faults(options.seed, options.faults)
    , m_service(m_db, m_faults)
{
}

GatewayCore::~GatewayCore()
{
    shutdown();
}

quint16 GatewayCore::port() const
{
    return m_server ? m_server->serverPort() : 0;
}

bool GatewayCore::start(const QString& host, quint16 port, QString* error)
{
    QString path = m_options.dbPath;
    if (path.isEmpty()) {
        m_tempDir = std::make_unique<QTemporaryDir>();
        if (!m_tempDir->isValid()) {
            *error = QStringLiteral("无法创建临时目录：%1").arg(m_tempDir->errorString());
            return false;
        }
        path = m_tempDir->filePath(QStringLiteral("gateway.sqlite"));
    }
    QString dbError;
    if (!m_db.open(path, qMax(0, m_options.rows), m_options.seed, &dbError)) {
        *error = QStringLiteral("无法打开数据库%1：%2").arg(path, dbError);
        return false;
    }

    QHostAddress address;
    if (host == QLatin1String("localhost"))
        address = QHostAddress::LocalHost;
    else if (!address.setAddress(host)) {
        *error = QStringLiteral("监听地址无效：%1").arg(host);
        return false;
    }
    m_server = new QTcpServer(this);
    connect(m_server, &QTcpServer::newConnection, this, &GatewayCore::onNewConnection);
    if (!m_server->listen(address, port)) {
        *error = QStringLiteral("无法监听%1:%2：%3").arg(host).arg(port).arg(m_server->errorString());
        delete m_server;
        m_server = nullptr;
        return false;
    }
    qCInfo(lcGateway).noquote() << "GatewayCore::start"
                                << QStringLiteral("网关开始监听%1:%2，数据%3行，种子%4")
                                       .arg(host)
                                       .arg(m_server->serverPort())
                                       .arg(m_options.rows)
                                       .arg(m_options.seed);
    return true;
}

void GatewayCore::requestStart(const QString& host, quint16 port, Started done)
{
    // The lock is held while the call is posted: the core's thread takes it first thing, so
    // everything done here comes before the start, and before the core's end, in a way race
    // checkers see.
    std::lock_guard<std::mutex> lock(m_requestMutex);
    m_requestedHost = host;
    m_requestedPort = port;
    m_started = std::move(done);
    QMetaObject::invokeMethod(this, "startRequested", Qt::QueuedConnection);
}

void GatewayCore::startRequested()
{
    QString host;
    quint16 port = 0;
    Started done;
    {
        std::lock_guard<std::mutex> lock(m_requestMutex);
        host = m_requestedHost;
        port = m_requestedPort;
        done = std::move(m_started);
    }
    QString error;
    const bool ok = start(host, port, &error);
    if (done)
        done(ok, this->port(), error);
}

void GatewayCore::shutdown()
{
    if (m_server) {
        m_server->close();
        delete m_server;
        m_server = nullptr;
    }
    const auto connections = std::exchange(m_connections, {});
    for (GatewayConnection* c : connections) {
        disconnect(c, nullptr, this, nullptr);
        c->drop();
        delete c;
    }
    m_flows.clear();
    m_db.close();
    m_tempDir.reset();
}

void GatewayCore::onNewConnection()
{
    while (QTcpSocket* socket = m_server->nextPendingConnection()) {
        auto* connection = new GatewayConnection(
            socket, [this](GatewayConnection* c, WireFrame& f) { handleFrame(c, f); }, this);
        m_connections.insert(connection);
        connect(connection, &GatewayConnection::closed, this, [this](GatewayConnection* c) {
            if (m_connections.remove(c))
                c->deleteLater();
        });
        qCDebug(lcGateway).noquote() << "GatewayCore::onNewConnection" << QStringLiteral("客户端%1已连接").arg(connection->peer());
    }
}

void GatewayCore::handleFrame(GatewayConnection* connection, WireFrame& frame)
{
    if (frame.kind != QLatin1String(WireKind::request)) {
        qCDebug(lcGateway).noquote() << "GatewayCore::handleFrame" << QStringLiteral("忽略类别为%1的帧").arg(frame.kind);
        return;
    }
    // The control function is never subject to faults, so that they can always be lifted.
    GatewayFaults::Decision decision;
    if (!GatewayService::isControl(frame.type))
        decision = m_faults.decide(frame.type);

    switch (decision.action) {
    case GatewayFaults::Drop:
        qCInfo(lcGateway).noquote() << "GatewayCore::handleFrame"
                                    << QStringLiteral("模拟断线：功能号%1，客户端%2").arg(frame.type, connection->peer());
        connection->drop();
        return;
    case GatewayFaults::NoReply:
        qCInfo(lcGateway).noquote() << "GatewayCore::handleFrame" << QStringLiteral("模拟无应答：功能号%1").arg(frame.type);
        return;
    case GatewayFaults::Fail: {
        GatewayService::Outcome outcome;
        outcome.message = GatewayReply::failure(QStringLiteral("模拟网关故障：请求处理失败"));
        if (decision.latencyMs > 0) {
            QTimer::singleShot(decision.latencyMs, connection,
                               [this, connection, id = frame.id, type = frame.type, outcome] {
                                   answer(connection, id, type, outcome);
                               });
        } else {
            answer(connection, frame.id, frame.type, outcome);
        }
        return;
    }
    case GatewayFaults::Answer:
        break;
    }

    const GatewayService::Outcome outcome = m_service.handle(frame.type, frame.msg);
    if (decision.latencyMs > 0) {
        QTimer::singleShot(decision.latencyMs, connection, [this, connection, id = frame.id, type = frame.type, outcome] {
            answer(connection, id, type, outcome);
        });
    } else {
        answer(connection, frame.id, frame.type, outcome);
    }
}

void GatewayCore::answer(GatewayConnection* connection, qint64 id, const QString& type,
                         const GatewayService::Outcome& outcome)
{
    const QString kind = QLatin1String(outcome.failed ? WireKind::failure : WireKind::reply);
    connection->send(WireFrameCodec::encode(id, kind, type, QString(), outcome.message));

    for (const GatewayOrder& order : outcome.placed) {
        m_flows.insert(order.orderID, OrderFlow{connection, 0});
        pushOrder(connection, order);
        QTimer::singleShot(m_options.pushIntervalMs, this, [this, orderID = order.orderID] { advanceOrder(orderID); });
    }
    for (const GatewayOrder& order : outcome.canceled) {
        const auto it = m_flows.constFind(order.orderID);
        GatewayConnection* target = connection;
        if (it != m_flows.constEnd() && it->connection)
            target = it->connection;
        m_flows.remove(order.orderID);
        pushOrder(target, order);
    }
}

void GatewayCore::pushOrder(GatewayConnection* connection, const GatewayOrder& order)
{
    if (!connection)
        return;
    connection->send(WireFrameCodec::encode(0, QLatin1String(WireKind::push),
                                            QLatin1String(Zentra_Values::PushType::orderState), QString(),
                                            WireFrameCodec::encodeMessage(QVariantList{order.toRow()})));
}

void GatewayCore::advanceOrder(const QString& orderID)
{
    auto it = m_flows.find(orderID);
    if (it == m_flows.end())
        return;
    GatewayOrder order;
    if (!m_db.findOrder(orderID, &order) || order.isFinal()) {
        m_flows.erase(it);
        return;
    }
    const int step = ++it->step;
    order.orderStatus = QLatin1String(orderStates[step]);
    if (order.orderStatus == QLatin1String(OS::partiallyFilled))
        order.cumQty = qMax<qint64>(1, order.orderQty / 2);
    else if (order.orderStatus == QLatin1String(OS::filled))
        order.cumQty = order.orderQty;
    m_db.updateOrder(order);
    pushOrder(it->connection, order);
    if (step + 1 >= orderStateCount) {
        m_flows.erase(it);
        return;
    }
    QTimer::singleShot(m_options.pushIntervalMs, this, [this, orderID] { advanceOrder(orderID); });
}

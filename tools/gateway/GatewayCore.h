#pragma once

#include "GatewayDatabase.h"
#include "GatewayFaults.h"
#include "GatewayOptions.h"
#include "GatewayService.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QSet>

#include <functional>
#include <memory>
#include <mutex>

class GatewayConnection;
class QTcpServer;
class QTemporaryDir;
struct WireFrame;

// The running gateway, on its own thread: accepts clients, answers their requests
// through the service (after the latency and faults drawn for each), and pushes the
// states of the orders that each client placed to that client.
class GatewayCore : public QObject
{
    Q_OBJECT
public:
    explicit GatewayCore(const GatewayOptions& options);
    ~GatewayCore() override;

    bool start(const QString& host, quint16 port, QString* error);

    // Any thread: asks for start() on the core's thread; `done` receives the outcome there.
    using Started = std::function<void(bool ok, quint16 port, const QString& error)>;
    void requestStart(const QString& host, quint16 port, Started done);
    void shutdown();
    quint16 port() const;

private:
    Q_INVOKABLE void startRequested();

    struct OrderFlow {
        QPointer<GatewayConnection> connection;
        int step = 0; // index in the state sequence of the last push
    };

    void onNewConnection();
    void handleFrame(GatewayConnection* connection, WireFrame& frame);
    void answer(GatewayConnection* connection, qint64 id, const QString& type,
                const GatewayService::Outcome& outcome);
    void pushOrder(GatewayConnection* connection, const GatewayOrder& order);
    void advanceOrder(const QString& orderID);

    GatewayOptions m_options;
    std::unique_ptr<QTemporaryDir> m_tempDir;
    GatewayDatabase m_db;
    GatewayFaults m_faults;
    GatewayService m_service;
    QTcpServer* m_server = nullptr;
    QSet<GatewayConnection*> m_connections;
    QHash<QString, OrderFlow> m_flows;
    std::mutex m_requestMutex; // a standard mutex, so that race checkers see the hand-over
    QString m_requestedHost;
    quint16 m_requestedPort = 0;
    Started m_started;
};

#pragma once

#include "GatewayOptions.h"

#include <QString>

#include <atomic>
#include <memory>

class GatewayCore;
class QThread;

// The trading-gateway simulator as a library: start() listens on host:port (port 0: any
// free port) and serves clients on a thread of its own until stop() or destruction.
class GatewayServer
{
public:
    explicit GatewayServer(const GatewayOptions& options = GatewayOptions());
    ~GatewayServer();
    GatewayServer(const GatewayServer&) = delete;
    GatewayServer& operator=(const GatewayServer&) = delete;

    bool start(const QString& host = QStringLiteral("127.0.0.1"), quint16 port = 0);
    void stop();

    bool isRunning() const { return m_core != nullptr; }
    QString host() const { return m_host; }
    // The port actually listened on (0 when not running).
    quint16 port() const { return m_port; }
    // "host:port", what presenters are given as the gateway address.
    QString address() const;
    QString errorString() const { return m_error; }

private:
    GatewayOptions m_options;
    QThread* m_thread = nullptr;
    GatewayCore* m_core = nullptr;
    std::shared_ptr<std::atomic<bool>> m_coreGone;
    QString m_host;
    quint16 m_port = 0;
    QString m_error;
};

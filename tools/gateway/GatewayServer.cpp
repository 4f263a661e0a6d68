#include "GatewayServer.h"

#include "GatewayCore.h"

#include <QThread>

GatewayServer::GatewayServer(const GatewayOptions& options)
    : m_options(options)
{
}

GatewayServer::~GatewayServer()
{
    stop();
}

QString GatewayServer::address() const
{
    return QStringLiteral("%1:%2").arg(m_host).arg(m_port);
}

bool GatewayServer::start(const QString& host, quint16 port)
{
    stop();
    m_error.clear();
    m_thread = new QThread;
    m_thread->setObjectName(QStringLiteral("gateway"));
    m_thread->start();

    // The core and everything it owns (database connection, sockets) live on that thread.
    auto* core = new GatewayCore(m_options);
    core->moveToThread(m_thread);
    // The core is destroyed on its own thread as the thread ends; no posted event is needed,
    // so stopping also works after the application object is gone.
    QObject::connect(m_thread, &QThread::finished, m_thread, [core] { delete core; }, Qt::DirectConnection);
    bool ok = false;
    quint16 bound = 0;
    QMetaObject::invokeMethod(
        core,
        [&] {
            ok = core->start(host, port, &m_error);
            bound = core->port();
        },
        Qt::BlockingQueuedConnection);
    m_core = core;
    if (!ok) {
        stop();
        return false;
    }
    m_host = host;
    m_port = bound;
    return true;
}

void GatewayServer::stop()
{
    if (!m_thread)
        return;
    m_core = nullptr;
    m_thread->quit();
    m_thread->wait();
    delete m_thread;
    m_thread = nullptr;
    m_port = 0;
}

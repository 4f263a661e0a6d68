#include "GatewayServer.h"

#include "GatewayCore.h"

#include <QThread>

#include <condition_variable>
#include <mutex>

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
    // The core and everything it owns (database connection, sockets) live on that thread.
    auto* core = new GatewayCore(m_options);
    core->moveToThread(m_thread);
    // The core is destroyed on its own thread as the thread ends; no posted event is needed,
    // so stopping also works after the application object is gone.
    m_coreGone = std::make_shared<std::atomic<bool>>(false);
    QObject::connect(m_thread, &QThread::finished, m_thread, [core, gone = m_coreGone] {
        delete core;
        gone->store(true, std::memory_order_release);
    }, Qt::DirectConnection);
    m_thread->start();

    std::mutex mutex;
    std::condition_variable cv;
    bool done = false;
    bool ok = false;
    quint16 bound = 0;
    core->requestStart(host, port, [&](bool started, quint16 listening, const QString& error) {
        std::lock_guard<std::mutex> lock(mutex);
        ok = started;
        bound = listening;
        m_error = error;
        done = true;
        cv.notify_one();
    });
    {
        std::unique_lock<std::mutex> lock(mutex);
        cv.wait(lock, [&] { return done; });
    }
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
    // Orders the core's end before the thread object goes, in a way race checkers see.
    while (!m_coreGone->load(std::memory_order_acquire))
        QThread::yieldCurrentThread();
    delete m_thread;
    m_thread = nullptr;
    m_port = 0;
}

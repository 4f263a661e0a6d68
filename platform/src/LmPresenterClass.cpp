#include "LmPresenterClass.h"

#include "CEventMessageCommon.h"
#include "CMessageCommon.h"
#include "LmEventBus.h"
#include "PresenterTransports.h"
#include "ScriptedTransport.h"

#include <QMetaMethod>

struct LmPresenterClass::PushRelay {
    QRecursiveMutex mutex; // a listener may delete the presenter while a push is delivered
    LmPresenterClass* target = nullptr;
};

LmPresenterClass::LmPresenterClass(const QString& name, QObject* parent, int threadType)
    : QObject(parent)
    , m_pluginPid(name)
    , m_threadType(threadType)
    , m_relay(std::make_shared<PushRelay>())
{
    setObjectName(name);
    m_relay->target = this;
}

LmPresenterClass::~LmPresenterClass()
{
    {
        // Waits for a push being delivered on the transport's thread.
        QMutexLocker locker(&m_relay->mutex);
        m_relay->target = nullptr;
    }
    QObject::disconnect(m_pushConnection);
}

void LmPresenterClass::setTransport(std::shared_ptr<IPresenterTransport> transport)
{
    {
        QMutexLocker locker(&m_mutex);
        m_own = std::move(transport);
    }
    if (isSignalConnected(QMetaMethod::fromSignal(&LmPresenterClass::pushReceived)))
        resolveTransport(); // pushes follow the new transport
}

void LmPresenterClass::connectNotify(const QMetaMethod& signal)
{
    if (signal == QMetaMethod::fromSignal(&LmPresenterClass::pushReceived))
        resolveTransport();
}

std::shared_ptr<IPresenterTransport> LmPresenterClass::transport() const
{
    return resolveTransport();
}

std::shared_ptr<IPresenterTransport> LmPresenterClass::resolveTransport() const
{
    std::shared_ptr<IPresenterTransport> chosen;
    {
        QMutexLocker locker(&m_mutex);
        chosen = m_own;
    }
    if (!chosen)
        chosen = PresenterTransports::forAddress();

    QMutexLocker locker(&m_mutex);
    if (chosen != m_connected) {
        QObject::disconnect(m_pushConnection);
        m_pushConnection = QObject::connect(chosen.get(), &IPresenterTransport::pushed,
                                            [relay = m_relay](const QString& type, const QVariant& msg) {
                                                QMutexLocker locker(&relay->mutex);
                                                if (relay->target)
                                                    emit relay->target->pushReceived(type, msg);
                                            });
        m_connected = chosen;
    }
    return chosen;
}

int LmPresenterClass::sendRequest_Sync_Block(CMessageCommon* msg, QVariant& reply, unsigned long timeout)
{
    std::unique_ptr<CMessageCommon> owned(msg);
    if (!owned) {
        reply = ScriptedTransport::failureReply(QStringLiteral("请求消息为空"));
        return IPresenterTransport::Failure;
    }
    const unsigned long effective = timeout == 0 ? PresenterTransports::defaultTimeoutMs() : timeout;
    const auto transport = resolveTransport();
    return transport->request(owned->GetType().toString(), owned->GetSrcid(), owned->GetMsg(), reply, effective);
}

void LmPresenterClass::PutEvent(const QString& srcId, CEventMessageCommon* event)
{
    std::unique_ptr<CEventMessageCommon> owned(event);
    if (!owned)
        return;
    LmEventBus::instance()->put(srcId, owned->GetType(), owned->GetMsg());
}

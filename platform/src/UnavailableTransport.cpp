#include "UnavailableTransport.h"

#include "ScriptedTransport.h"

UnavailableTransport::UnavailableTransport(const QString& reason, QObject* parent)
    : IPresenterTransport(parent)
    , m_reason(reason)
{
}

int UnavailableTransport::request(const QString&, const QString&, const QVariant&, QVariant& reply, unsigned long)
{
    reply = ScriptedTransport::failureReply(m_reason);
    return Failure;
}

#pragma once

#include "IPresenterTransport.h"

// Answers every request with a failure that names the reason; used when no gateway
// address is configured or no network transport is available.
class VANTORPLATFORM_EXPORT UnavailableTransport : public IPresenterTransport
{
    Q_OBJECT
public:
    explicit UnavailableTransport(const QString& reason, QObject* parent = nullptr);

    int request(const QString& type, const QString& srcId, const QVariant& msg, QVariant& reply,
                unsigned long timeoutMs) override;

private:
    QString m_reason;
};

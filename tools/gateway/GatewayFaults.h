#pragma once

#include "GatewayOptions.h"

#include <QHash>
#include <QRandomGenerator>

// Decides, request by request, whether the gateway answers normally, fails, stays silent
// or drops the connection, and how long it waits first. Rates are global or per function;
// every function draws from its own generator seeded from the gateway's seed, so the same
// sequence of requests meets the same faults in every run.
class GatewayFaults
{
public:
    enum Action { Answer, Fail, NoReply, Drop };
    struct Decision {
        Action action = Answer;
        int latencyMs = 0;
    };

    explicit GatewayFaults(quint32 seed = 1, const GatewayFaultRates& global = {});

    Decision decide(const QString& functionId);

    GatewayFaultRates rates(const QString& functionId) const;
    void setGlobal(const GatewayFaultRates& rates) { m_global = rates; }
    GatewayFaultRates global() const { return m_global; }
    void setForFunction(const QString& functionId, const GatewayFaultRates& rates);
    // Back to the rates given at start and no per-function rates.
    void reset();

private:
    quint32 m_seed;
    GatewayFaultRates m_initial;
    GatewayFaultRates m_global;
    QHash<QString, GatewayFaultRates> m_perFunction;
    QHash<QString, QRandomGenerator> m_generators;
};

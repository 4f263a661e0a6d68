#include "GatewayFaults.h"

namespace {
// FNV-1a: stable across runs, unlike QHash's seeded hashing.
quint32 stableHash(const QString& text)
{
    quint32 h = 2166136261u;
    for (const QChar c : text) {
        h ^= c.unicode();
        h *= 16777619u;
    }
    return h;
}
} // namespace

GatewayFaults::GatewayFaults(quint32 seed, const GatewayFaultRates& global)
    : m_seed(seed)
    , m_initial(global)
    , m_global(global)
{
}

GatewayFaultRates GatewayFaults::rates(const QString& functionId) const
{
    return m_perFunction.value(functionId, m_global);
}

void GatewayFaults::setForFunction(const QString& functionId, const GatewayFaultRates& rates)
{
    m_perFunction.insert(functionId, rates);
}

void GatewayFaults::reset()
{
    m_global = m_initial;
    m_perFunction.clear();
    m_generators.clear();
}

GatewayFaults::Decision GatewayFaults::decide(const QString& functionId)
{
    const GatewayFaultRates r = rates(functionId);
    Decision d;
    d.latencyMs = qMax(0, r.latencyMs);
    if (r.failRate <= 0 && r.noreplyRate <= 0 && r.dropRate <= 0)
        return d;
    auto it = m_generators.find(functionId);
    if (it == m_generators.end())
        it = m_generators.insert(functionId, QRandomGenerator(m_seed ^ stableHash(functionId)));
    const double u = it->generateDouble();
    if (u < r.dropRate)
        d.action = Drop;
    else if (u < r.dropRate + r.noreplyRate)
        d.action = NoReply;
    else if (u < r.dropRate + r.noreplyRate + r.failRate)
        d.action = Fail;
    return d;
}

#include "ScriptedTransport.h"

#include "ZentraFields.h"

#include <QThread>

ScriptedTransport::ScriptedTransport(QObject* parent)
    : IPresenterTransport(parent)
{
}

QVariant ScriptedTransport::packRows(const QVariantMap& head, const QList<QVariantMap>& rows)
{
    QVariantList packed;
    packed.reserve(rows.size() + 1);
    packed.append(head);
    for (const QVariantMap& row : rows)
        packed.append(row);
    return packed;
}

QVariant ScriptedTransport::failureReply(const QString& text)
{
    QVariantMap head;
    head.insert(QLatin1String(Zentra_Fields::System::requestExeStatus), QLatin1String(Zentra_Values::RequestExeStatus::fail));
    head.insert(QLatin1String(Zentra_Fields::System::textDescription), text);
    return QVariantList{head};
}

void ScriptedTransport::queueRows(const QList<QVariantMap>& rows, int totalSize, const QVariantMap& headExtra,
                                  unsigned long delayMs)
{
    QVariantMap head;
    head.insert(QLatin1String(Zentra_Fields::System::requestExeStatus), QLatin1String(Zentra_Values::RequestExeStatus::success));
    head.insert(QLatin1String(Zentra_Fields::System::totalSize), totalSize < 0 ? rows.size() : totalSize);
    head.insert(QLatin1String(Zentra_Fields::System::subGroupNumber), rows.size());
    for (auto it = headExtra.cbegin(); it != headExtra.cend(); ++it)
        head.insert(it.key(), it.value());
    queueOutcome({Reply, packRows(head, rows), delayMs});
}

void ScriptedTransport::queueServerFailure(const QString& text, unsigned long delayMs)
{
    queueOutcome({Reply, failureReply(text), delayMs});
}

void ScriptedTransport::queueTimeout(unsigned long delayMs)
{
    queueOutcome({Timeout, QVariant(), delayMs});
}

void ScriptedTransport::queueTransportFailure(const QString& text, unsigned long delayMs)
{
    queueOutcome({Failure, failureReply(text), delayMs});
}

void ScriptedTransport::queueOutcome(const Outcome& outcome)
{
    QMutexLocker locker(&m_mutex);
    m_outcomes.enqueue(outcome);
}

void ScriptedTransport::setHandler(Handler handler)
{
    QMutexLocker locker(&m_mutex);
    m_handler = std::move(handler);
}

QList<ScriptedTransport::Request> ScriptedTransport::requests() const
{
    QMutexLocker locker(&m_mutex);
    return m_requests;
}

int ScriptedTransport::requestCount() const
{
    QMutexLocker locker(&m_mutex);
    return m_requests.size();
}

int ScriptedTransport::pendingOutcomes() const
{
    QMutexLocker locker(&m_mutex);
    return m_outcomes.size();
}

void ScriptedTransport::clear()
{
    QMutexLocker locker(&m_mutex);
    m_outcomes.clear();
    m_requests.clear();
    m_handler = nullptr;
}

void ScriptedTransport::push(const QString& type, const QVariant& msg)
{
    emit pushed(type, msg);
}

int ScriptedTransport::request(const QString& type, const QString& srcId, const QVariant& msg, QVariant& reply,
                               unsigned long timeoutMs)
{
    Request req{type, srcId, msg, timeoutMs};
    Outcome outcome;
    Handler handler;
    {
        QMutexLocker locker(&m_mutex);
        m_requests.append(req);
        if (!m_outcomes.isEmpty())
            outcome = m_outcomes.dequeue();
        else if (m_handler)
            handler = m_handler;
        else
            outcome = {Failure, failureReply(QStringLiteral("没有可用的脚本应答")), 0};
    }
    if (handler)
        outcome = handler(req);
    if (outcome.delayMs > 0)
        QThread::msleep(outcome.delayMs);
    reply = outcome.reply;
    return outcome.result;
}

#pragma once

#include "IPresenterTransport.h"

#include <QList>
#include <QMap>
#include <QMutex>
#include <QQueue>

#include <functional>

// An in-process transport for unit tests: answers each request from a queue of scripted
// outcomes (replies, time-outs, failures, each with an optional delay) or from a handler,
// and records every request it saw.
class VANTORPLATFORM_EXPORT ScriptedTransport : public IPresenterTransport
{
    Q_OBJECT
public:
    struct Request {
        QString type;
        QString srcId;
        QVariant msg;
        unsigned long timeoutMs = 0;
    };
    struct Outcome {
        int result = Reply;
        QVariant reply;
        unsigned long delayMs = 0;
    };
    using Handler = std::function<Outcome(const Request&)>;

    explicit ScriptedTransport(QObject* parent = nullptr);

    // A successful reply: a head row with requestExeStatus = success, totalSize and
    // subGroupNumber = rows.size(), then the rows. Extra head fields are merged in.
    void queueRows(const QList<QVariantMap>& rows, int totalSize = -1, const QVariantMap& headExtra = {},
                   unsigned long delayMs = 0);
    // A reply whose head row says the request failed, with the given text.
    void queueServerFailure(const QString& text, unsigned long delayMs = 0);
    // The transport gives up waiting (result 1). Waits delayMs first when given.
    void queueTimeout(unsigned long delayMs = 0);
    // The transport fails (result 2) with a reply whose textDescription says why.
    void queueTransportFailure(const QString& text, unsigned long delayMs = 0);
    // Any raw outcome, including result codes a real transport never gives.
    void queueOutcome(const Outcome& outcome);
    // Used when the queue is empty; without it an empty queue answers a transport failure.
    void setHandler(Handler handler);

    QList<Request> requests() const;
    int requestCount() const;
    int pendingOutcomes() const;
    void clear();

    // Emits pushed() as if the gateway had pushed the message.
    void push(const QString& type, const QVariant& msg);

    static QVariant packRows(const QVariantMap& head, const QList<QVariantMap>& rows);
    static QVariant failureReply(const QString& text);

    int request(const QString& type, const QString& srcId, const QVariant& msg, QVariant& reply,
                unsigned long timeoutMs) override;

private:
    mutable QMutex m_mutex;
    QQueue<Outcome> m_outcomes;
    QList<Request> m_requests;
    Handler m_handler;
};

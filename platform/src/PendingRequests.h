#pragma once

#include <QHash>
#include <QMutex>
#include <QVariant>
#include <QWaitCondition>

#include <memory>

// The requests of one transport that wait for their replies, keyed by request id. Callers
// wait on their own entry; the I/O thread completes entries as replies arrive.
class PendingRequests
{
public:
    struct Entry {
        QWaitCondition done;
        bool finished = false;
        bool sent = false; // written to a connection
        int result = 0;
        QVariant reply;
    };

    std::shared_ptr<Entry> add(qint64 id);
    // Blocks until the entry finishes or the deadline passes; removes it either way.
    // False on the deadline; `sent` then tells whether the request left.
    bool wait(qint64 id, const std::shared_ptr<Entry>& entry, qint64 timeoutMs, bool* sent);

    // Marks the request as written; false when its caller gave up already.
    bool markSent(qint64 id);
    void complete(qint64 id, int result, const QVariant& reply);
    // Completes every request that was written to the connection that is gone.
    void failSent(const QVariant& reply, int result);
    int size() const;

private:
    mutable QMutex m_mutex;
    QHash<qint64, std::shared_ptr<Entry>> m_entries;
};

#pragma once

#include <QHash>
#include <QMutex>
#include <QVariant>
#include <QWaitCondition>

#include <memory>

// The requests of one transport that wait for their replies, keyed by request id. Callers
// wait on their own entry; the reading thread completes entries as replies arrive and wakes
// only the caller whose reply it read.
class PendingRequests
{
public:
    struct Entry {
        QWaitCondition done;
        bool finished = false;
        quint64 connection = 0; // the connection it was written to; 0 while not written
        int result = 0;
        QVariant reply;
    };

    std::shared_ptr<Entry> add(qint64 id);
    // Blocks until the entry finishes or the deadline passes; removes it either way.
    // False on the deadline.
    bool wait(qint64 id, const std::shared_ptr<Entry>& entry, qint64 timeoutMs);
    // Removes an entry that will not be waited for.
    void remove(qint64 id);

    // Marks the request as written to `connection` (numbered from 1).
    void markSent(const std::shared_ptr<Entry>& entry, quint64 connection);
    void complete(qint64 id, int result, QVariant&& reply);
    // Completes every request that was written to `connection`, which is gone.
    void failSent(quint64 connection, const QVariant& reply, int result);
    int size() const;

private:
    mutable QMutex m_mutex;
    QHash<qint64, std::shared_ptr<Entry>> m_entries;
};

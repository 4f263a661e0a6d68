#include "PendingRequests.h"

#include <QDeadlineTimer>

std::shared_ptr<PendingRequests::Entry> PendingRequests::add(qint64 id)
{
    auto entry = std::make_shared<Entry>();
    QMutexLocker locker(&m_mutex);
    m_entries.insert(id, entry);
    return entry;
}

bool PendingRequests::wait(qint64 id, const std::shared_ptr<Entry>& entry, qint64 timeoutMs)
{
    QMutexLocker locker(&m_mutex);
    const QDeadlineTimer deadline(timeoutMs);
    while (!entry->finished) {
        if (!entry->done.wait(&m_mutex, deadline))
            break;
    }
    m_entries.remove(id);
    return entry->finished;
}

void PendingRequests::remove(qint64 id)
{
    QMutexLocker locker(&m_mutex);
    m_entries.remove(id);
}

void PendingRequests::markSent(const std::shared_ptr<Entry>& entry, quint64 connection)
{
    QMutexLocker locker(&m_mutex);
    entry->connection = connection;
}

void PendingRequests::complete(qint64 id, int result, QVariant&& reply)
{
    QMutexLocker locker(&m_mutex);
    auto it = m_entries.find(id);
    if (it == m_entries.end() || it.value()->finished)
        return;
    Entry& entry = *it.value();
    entry.finished = true;
    entry.result = result;
    entry.reply = std::move(reply);
    entry.done.wakeOne();
}

void PendingRequests::failSent(quint64 connection, const QVariant& reply, int result)
{
    QMutexLocker locker(&m_mutex);
    for (auto it = m_entries.begin(); it != m_entries.end(); ++it) {
        Entry& entry = *it.value();
        if (entry.connection != connection || entry.finished)
            continue;
        entry.finished = true;
        entry.result = result;
        entry.reply = reply;
        entry.done.wakeOne();
    }
}

int PendingRequests::size() const
{
    QMutexLocker locker(&m_mutex);
    return m_entries.size();
}

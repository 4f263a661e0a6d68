#include "PendingRequests.h"

#include <QDeadlineTimer>

std::shared_ptr<PendingRequests::Entry> PendingRequests::add(qint64 id)
{
    auto entry = std::make_shared<Entry>();
    QMutexLocker locker(&m_mutex);
    m_entries.insert(id, entry);
    return entry;
}

bool PendingRequests::wait(qint64 id, const std::shared_ptr<Entry>& entry, qint64 timeoutMs, bool* sent)
{
    QMutexLocker locker(&m_mutex);
    const QDeadlineTimer deadline(timeoutMs);
    while (!entry->finished) {
        if (!entry->done.wait(&m_mutex, deadline))
            break;
    }
    m_entries.remove(id);
    if (sent)
        *sent = entry->sent;
    return entry->finished;
}

bool PendingRequests::markSent(qint64 id)
{
    QMutexLocker locker(&m_mutex);
    auto it = m_entries.find(id);
    if (it == m_entries.end())
        return false;
    it.value()->sent = true;
    return true;
}

void PendingRequests::complete(qint64 id, int result, const QVariant& reply)
{
    QMutexLocker locker(&m_mutex);
    auto it = m_entries.find(id);
    if (it == m_entries.end() || it.value()->finished)
        return;
    Entry& entry = *it.value();
    entry.finished = true;
    entry.result = result;
    entry.reply = reply;
    entry.done.wakeAll();
}

void PendingRequests::failSent(const QVariant& reply, int result)
{
    QMutexLocker locker(&m_mutex);
    for (auto it = m_entries.begin(); it != m_entries.end(); ++it) {
        Entry& entry = *it.value();
        if (!entry.sent || entry.finished)
            continue;
        entry.finished = true;
        entry.result = result;
        entry.reply = reply;
        entry.done.wakeAll();
    }
}

int PendingRequests::size() const
{
    QMutexLocker locker(&m_mutex);
    return m_entries.size();
}

#pragma once

#include <QHash>
#include <QReadWriteLock>
#include <QString>

// Hands out the ids of named events. Ids count up from the client's event-id base; a
// name keeps its id for the life of the process.
class VantorEventIdRegistry
{
public:
    VantorEventIdRegistry();

    // The id of the named event, created (and logged) on first use. Two callers that
    // create the same name at the same moment both count up, and the later one's id is
    // kept: a second look-up under the write lock is deliberately not made.
    int GetKorvoEventMsgIdByStr(const QString& key);

private:
    QReadWriteLock m_lock;
    QHash<QString, int> m_ids;
    int m_counter;
};

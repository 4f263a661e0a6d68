#include "VantorEventIdRegistry.h"

#include <QMutexLocker>
#include <QReadWriteLock>
#include "VantorLogging.h"

#include <KorvoKeys.h>

VantorEventIdRegistry::VantorEventIdRegistry()
    : m_counter(VantorEventMsgID::KORVO_BASE_TYPE)
{
}

int VantorEventIdRegistry::GetKorvoEventMsgIdByStr(const QString& key)
{
    {
        QReadLocker locker(&m_lock);
        const auto it = m_ids.constFind(key);
        if (it != m_ids.constEnd())
            return it.value();
    }

    QWriteLocker locker(&m_lock);
    const int id = ++m_counter;
    qCInfo(lcQuery).noquote() << "VantorUtils_p::GetKorvoEventMsgIdByStr"
                              << QStringLiteral("Vantor Event MsgId created, msgKey: %1, msgId: %2").arg(key, QString::number(id));
    m_ids.insert(key, id);
    return id;
}

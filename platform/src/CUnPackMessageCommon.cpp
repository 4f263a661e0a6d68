#include "CUnPackMessageCommon.h"

#include "ZentraFields.h"

bool CUnPackMessageCommon::SetUnPackMsg(const QVariant& msg, bool group)
{
    m_rows.clear();
    m_current = 0;
    const QVariantList list = msg.toList();
    m_rows.reserve(list.size());
    for (const QVariant& row : list)
        m_rows.append(row.toMap());
    if (group && !m_rows.isEmpty()) {
        const QString key = QLatin1String(Zentra_Fields::System::groupRows);
        const QVariantList nested = m_rows.first().take(key).toList();
        for (const QVariant& row : nested)
            m_rows.append(row.toMap());
    }
    return !m_rows.isEmpty();
}

void CUnPackMessageCommon::SetCurrentRow(int row)
{
    m_current = row;
}

QVariant CUnPackMessageCommon::GetValue(const QString& key, const QVariant& defaultValue) const
{
    if (m_current < 0 || m_current >= m_rows.size())
        return defaultValue;
    return m_rows.at(m_current).value(key, defaultValue);
}

QMap<QString, QVariant> CUnPackMessageCommon::GetRowValue() const
{
    if (m_current < 0 || m_current >= m_rows.size())
        return {};
    return m_rows.at(m_current);
}

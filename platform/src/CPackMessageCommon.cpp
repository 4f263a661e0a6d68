#include "CPackMessageCommon.h"

#include "ZentraFields.h"

CPackMessageCommon::CPackMessageCommon()
{
    m_rows.append(QVariantMap());
}

void CPackMessageCommon::AddRowVaule(const QMap<QString, QVariant>& row)
{
    QVariantMap& current = m_rows[m_current];
    if (current.isEmpty()) {
        current = row;
        return;
    }
    for (auto it = row.cbegin(); it != row.cend(); ++it)
        current.insert(it.key(), it.value());
}

void CPackMessageCommon::AddVaule(const QString& key, const QVariant& value)
{
    m_rows[m_current].insert(key, value);
}

void CPackMessageCommon::AddRow()
{
    m_rows.append(QVariantMap());
    m_current = m_rows.size() - 1;
}

void CPackMessageCommon::SetCurrentRow(int row)
{
    if (row < 0)
        return;
    while (m_rows.size() <= row)
        m_rows.append(QVariantMap());
    m_current = row;
}

QVariant CPackMessageCommon::GetPackedMsg(bool group) const
{
    QVariantList packed;
    if (!group || m_rows.size() == 1) {
        packed.reserve(m_rows.size());
        for (const QVariantMap& row : m_rows)
            packed.append(row);
        return packed;
    }
    QVariantList nested;
    nested.reserve(m_rows.size() - 1);
    for (int i = 1; i < m_rows.size(); ++i)
        nested.append(m_rows.at(i));
    QVariantMap head = m_rows.first();
    head.insert(QLatin1String(Zentra_Fields::System::groupRows), nested);
    packed.append(head);
    return packed;
}

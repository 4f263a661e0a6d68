#pragma once

#include "VantorPlatformGlobal.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QVariant>

// Reads a packed message (see CPackMessageCommon) back row by row.
class VANTORPLATFORM_EXPORT CUnPackMessageCommon
{
public:
    CUnPackMessageCommon() = default;

    // Takes the packed message; with the group flag, rows nested under row 0 are
    // flattened back after it. Returns false when the message holds no rows.
    bool SetUnPackMsg(const QVariant& msg, bool group);
    void SetCurrentRow(int row);
    int GetCurrentRow() const { return m_current; }
    int GetRowCount() const { return m_rows.size(); }

    // A value of the current row, or the default when the row or the key is missing.
    QVariant GetValue(const QString& key, const QVariant& defaultValue = QVariant()) const;
    // The current row as a map (empty when out of range).
    QMap<QString, QVariant> GetRowValue() const;

private:
    QList<QVariantMap> m_rows;
    int m_current = 0;
};

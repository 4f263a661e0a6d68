#pragma once

#include "VantorPlatformGlobal.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QVariant>

// Collects rows (string-keyed maps) and serialises them. The packed form is a QVariant
// holding a QVariantList of QVariantMap rows. With the group flag, rows 1.. travel nested
// under row 0 (key Zentra_Fields::System::groupRows); the unpacker undoes it.
class VANTORPLATFORM_EXPORT CPackMessageCommon
{
public:
    CPackMessageCommon();

    // Merges the map into the current row (existing keys are overwritten).
    void AddRowVaule(const QMap<QString, QVariant>& row);
    // Sets one value of the current row.
    void AddVaule(const QString& key, const QVariant& value);
    // Opens a new, empty row and makes it current.
    void AddRow();
    // Makes row `row` current; rows up to it are created when missing. Negative is ignored.
    void SetCurrentRow(int row);
    int GetCurrentRow() const { return m_current; }
    int GetRowCount() const { return m_rows.size(); }

    QVariant GetPackedMsg(bool group) const;

private:
    QList<QVariantMap> m_rows;
    int m_current = 0;
};

#pragma once

#include "VantorTypes.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

// Turns the header and row description of an on-screen table or tree into the rows of
// text (header first) and the per-column export formats that the table writers take.
class TableModelContent
{
public:
    using Heads = QList<QMap<QString, QVariant>>;
    using Rows = QList<QMap<int, QMap<QString, QVariant>>>;

    static QList<QStringList> fromTable(const Heads& heads, const Rows& rows, bool allColumns, const QList<int>& columns);
    static QList<QStringList> fromTree(const Heads& heads, const Rows& rows, int column, int mode, bool allColumns);
    static QMap<int, ExportFormat> columnFormats(const Heads& heads, bool allColumns);
};

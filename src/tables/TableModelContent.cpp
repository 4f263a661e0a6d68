#include "TableModelContent.h"

namespace {

const QString kDisplay = QStringLiteral("Head_DisplayRole");
const QString kShow = QStringLiteral("Head_ShowRole");
const QString kColumnIndex = QStringLiteral("Head_ColumnIndex");
const QString kUserRole = QStringLiteral("Head_UserRole");
const QString kFormat = QStringLiteral("Head_FormatRole");

// Item roles in a cell's role map, by the decimal text of the role number.
const QString kRoleDisplay = QStringLiteral("0");
const QString kRoleUser = QStringLiteral("256");
const QString kRoleUser1 = QStringLiteral("257");
const QString kRoleUser3 = QStringLiteral("259");

bool isShown(const QMap<QString, QVariant>& head)
{
    return head.value(kShow, true).toBool();
}

QString cellText(const QMap<QString, QVariant>& roles)
{
    auto it = roles.constFind(kRoleUser3);
    if (it != roles.constEnd())
        return it.value().toString();
    it = roles.constFind(kRoleUser1);
    if (it != roles.constEnd())
        return it.value().toString();
    return roles.value(kRoleDisplay).toString();
}

} // namespace

QList<QStringList> TableModelContent::fromTable(const Heads& heads, const Rows& rows, bool allColumns,
                                                const QList<int>& columns)
{
    QList<int> keys;
    QStringList header;
    if (!columns.isEmpty()) {
        for (int entry : columns) {
            if (entry < 0 || entry >= heads.size())
                continue;
            keys.append(entry);
            header.append(heads.at(entry).value(kDisplay).toString());
        }
    } else {
        // Headers without a column key take the next running number; mixed headers may
        // therefore repeat a key, which is how the client has always numbered them.
        int running = 0;
        for (const auto& head : heads) {
            if (!allColumns && !isShown(head))
                continue;
            int key;
            if (head.contains(kColumnIndex))
                key = head.value(kColumnIndex).toInt();
            else if (head.contains(kUserRole))
                key = head.value(kUserRole).toInt();
            else
                key = running++;
            keys.append(key);
            header.append(head.value(kDisplay).toString());
        }
    }

    QList<QStringList> result;
    result.reserve(rows.size() + 1);
    result.append(header);
    for (const auto& row : rows) {
        QStringList line;
        line.reserve(keys.size());
        for (int key : qAsConst(keys)) {
            auto cell = row.constFind(key);
            line.append(cell == row.constEnd() ? QString() : cellText(cell.value()));
        }
        result.append(line);
    }
    return result;
}

QList<QStringList> TableModelContent::fromTree(const Heads& heads, const Rows& rows, int column, int mode,
                                               bool allColumns)
{
    if (mode == 255)
        return fromTable(heads, rows, allColumns, {});
    Rows kept;
    for (const auto& row : rows) {
        auto cell = row.constFind(column);
        const bool hasColumn = cell != row.constEnd();
        const bool userText = hasColumn && !cell.value().value(kRoleUser).toString().isEmpty();
        // Mode 2 keeps the rows marked in `column`; the other modes keep the rest,
        // including rows that have no such column at all.
        const bool keep = mode == 2 ? userText : !userText;
        if (keep)
            kept.append(row);
    }
    return fromTable(heads, kept, allColumns, {});
}

QMap<int, ExportFormat> TableModelContent::columnFormats(const Heads& heads, bool allColumns)
{
    QMap<int, ExportFormat> result;
    int position = 0;
    for (const auto& head : heads) {
        if (!allColumns && !isShown(head))
            continue;
        result.insert(position++, ExportFormat(head.value(kFormat, 0).toInt()));
    }
    return result;
}

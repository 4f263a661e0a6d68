#include "PosQueryExecuteItem.h"

PosQueryExecuteItem::PosQueryExecuteItem(QObject* parent)
    : IVantorQueryExecuteItem(parent)
{
}

PosQueryExecuteItem::~PosQueryExecuteItem() = default;

bool PosQueryExecuteItem::isPaged() const
{
    return true;
}

int PosQueryExecuteItem::pageMode() const
{
    return 1;
}

int PosQueryExecuteItem::pageSize() const
{
    return m_pageSize;
}

QString PosQueryExecuteItem::startPosStr() const
{
    return m_startPosStr;
}

bool PosQueryExecuteItem::postProcessDataList(QList<QMap<QString, QVariant>>& rows)
{
    m_dataList.append(rows);
    return true;
}

#include "NonPageQueryExecuteItem.h"

NonPageQueryExecuteItem::NonPageQueryExecuteItem(QObject* parent)
    : IVantorQueryExecuteItem(parent)
{
}

NonPageQueryExecuteItem::~NonPageQueryExecuteItem() = default;

void NonPageQueryExecuteItem::processDataHeadLine(QMap<QString, QVariant>& headLine)
{
    m_headLine = headLine;
}

bool NonPageQueryExecuteItem::postProcessDataList(QList<QMap<QString, QVariant>>& rows)
{
    m_dataList.append(rows);
    return true;
}

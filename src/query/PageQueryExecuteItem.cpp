#include "PageQueryExecuteItem.h"

PageQueryExecuteItem::PageQueryExecuteItem(QObject* parent)
    : IVantorQueryExecuteItem(parent)
{
}

PageQueryExecuteItem::~PageQueryExecuteItem() = default;

bool PageQueryExecuteItem::isPaged() const
{
    return true;
}

int PageQueryExecuteItem::pageMode() const
{
    return 0;
}

int PageQueryExecuteItem::pageSize() const
{
    return m_pageSize;
}

int PageQueryExecuteItem::startPageNo() const
{
    return m_startPageNo;
}

bool PageQueryExecuteItem::postProcessDataList(QList<QMap<QString, QVariant>>& rows)
{
    m_dataList.append(rows);
    return true;
}

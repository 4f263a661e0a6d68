#pragma once

#include "IVantorQueryExecuteItem.h"

// Pages by page number: each request carries pageNo and pageSize, and the query ends
// once the rows received reach the totalSize the server reports.
class PageQueryExecuteItem : public IVantorQueryExecuteItem
{
public:
    explicit PageQueryExecuteItem(QObject* parent = nullptr);
    ~PageQueryExecuteItem() override;

    bool isPaged() const override;
    int pageMode() const override;
    int pageSize() const override;
    int startPageNo() const override;
    bool postProcessDataList(QList<QMap<QString, QVariant>>& rows) override;

    void setPageSize(int size) { m_pageSize = size; }
    void setStartPageNo(int pageNo) { m_startPageNo = pageNo; }
    const QList<QMap<QString, QVariant>>& dataList() const { return m_dataList; }

private:
    int m_pageSize = 1000;
    int m_startPageNo = 0;
    QList<QMap<QString, QVariant>> m_dataList;
};

#pragma once

#include "IVantorQueryExecuteItem.h"

// Pages by position string: each request carries the last positionStr seen and
// requestNumber = page size; the query ends with the first page shorter than a page.
class PosQueryExecuteItem : public IVantorQueryExecuteItem
{
public:
    explicit PosQueryExecuteItem(QObject* parent = nullptr);
    ~PosQueryExecuteItem() override;

    bool isPaged() const override;
    int pageMode() const override;
    int pageSize() const override;
    QString startPosStr() const override;
    bool postProcessDataList(QList<QMap<QString, QVariant>>& rows) override;

    void setPageSize(int size) { m_pageSize = size; }
    void setStartPosStr(const QString& position) { m_startPosStr = position; }
    const QList<QMap<QString, QVariant>>& dataList() const { return m_dataList; }

private:
    int m_pageSize = 1000;
    QString m_startPosStr;
    QList<QMap<QString, QVariant>> m_dataList;
};

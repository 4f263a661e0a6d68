#pragma once

#include "IVantorQueryExecuteItem.h"

// One request with the condition as its only row. Keeps the head line of the reply apart
// from the data rows, so that the caller can return either or both.
class NonPageQueryExecuteItem : public IVantorQueryExecuteItem
{
public:
    explicit NonPageQueryExecuteItem(QObject* parent = nullptr);
    ~NonPageQueryExecuteItem() override;

    void processDataHeadLine(QMap<QString, QVariant>& headLine) override;
    bool postProcessDataList(QList<QMap<QString, QVariant>>& rows) override;

    const QMap<QString, QVariant>& headLine() const { return m_headLine; }
    const QList<QMap<QString, QVariant>>& dataList() const { return m_dataList; }

private:
    QMap<QString, QVariant> m_headLine;
    QList<QMap<QString, QVariant>> m_dataList;
};

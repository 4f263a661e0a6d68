#include "RequestSendExecuteItem.h"

RequestSendExecuteItem::RequestSendExecuteItem(QObject* parent)
    : NonPageQueryExecuteItem(parent)
{
}

RequestSendExecuteItem::~RequestSendExecuteItem() = default;

int RequestSendExecuteItem::retryTimeLimit() const
{
    return 0;
}

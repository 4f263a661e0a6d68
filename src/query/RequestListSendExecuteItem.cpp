#include "RequestListSendExecuteItem.h"

RequestListSendExecuteItem::RequestListSendExecuteItem(QObject* parent)
    : RequestSendExecuteItem(parent)
{
}

RequestListSendExecuteItem::~RequestListSendExecuteItem() = default;

bool RequestListSendExecuteItem::IsQueryCondList() const
{
    return true;
}

#pragma once

#include "RequestSendExecuteItem.h"

// Sends the list condition as the rows of one request; the first row says how many rows
// follow unless the caller set it.
class RequestListSendExecuteItem : public RequestSendExecuteItem
{
public:
    explicit RequestListSendExecuteItem(QObject* parent = nullptr);
    ~RequestListSendExecuteItem() override;

    bool IsQueryCondList() const override;
};

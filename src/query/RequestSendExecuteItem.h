#pragma once

#include "NonPageQueryExecuteItem.h"

// Sends one request. A send is never repeated: its first failure or time-out already
// exhausts the retries.
class RequestSendExecuteItem : public NonPageQueryExecuteItem
{
public:
    explicit RequestSendExecuteItem(QObject* parent = nullptr);
    ~RequestSendExecuteItem() override;

    int retryTimeLimit() const override;
};

#pragma once

#include <QString>
#include <QVariantMap>

// An order as the gateway stores it.
struct GatewayOrder {
    QString orderID;
    QString tradingAccount;
    QString symbol;
    QString exchange;
    QString side;
    double price = 0;
    qint64 orderQty = 0;
    qint64 cumQty = 0;
    QString orderStatus;
    QString orderTime;

    QVariantMap toRow() const;
    bool isFinal() const;
};

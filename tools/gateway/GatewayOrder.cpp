#include "GatewayOrder.h"

#include <ZentraFields.h>

QVariantMap GatewayOrder::toRow() const
{
    namespace S = Zentra_Fields::Security;
    QVariantMap row;
    row.insert(QLatin1String(S::orderID), orderID);
    row.insert(QLatin1String(Zentra_Fields::UserAccount::tradingAccount), tradingAccount);
    row.insert(QLatin1String(S::symbol), symbol);
    row.insert(QLatin1String(S::exchange), exchange);
    row.insert(QLatin1String(S::side), side);
    row.insert(QLatin1String(S::price), price);
    row.insert(QLatin1String(S::orderQty), orderQty);
    row.insert(QLatin1String(S::cumQty), cumQty);
    row.insert(QLatin1String(S::orderStatus), orderStatus);
    row.insert(QLatin1String(S::orderTime), orderTime);
    return row;
}

bool GatewayOrder::isFinal() const
{
    namespace V = Zentra_Values::OrderStatus;
    return orderStatus == QLatin1String(V::filled) || orderStatus == QLatin1String(V::canceled)
        || orderStatus == QLatin1String(V::rejected);
}

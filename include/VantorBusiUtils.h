#pragma once

#include "VantorGlobal.h"
#include "VantorTypes.h"

// Trading business rules: exchange and symbol dictionaries, side unions, order states,
// sellable-quantity allocation and profit. All static; the dictionaries are loaded once
// from the static configuration on first use.
class VANTORUTILS_EXPORT VantorBusiUtils
{
public:
    // ---- Exchanges and symbols ----

    // The broker's exchange code of a customer's exchange code, in any case ("sh", "XSHG");
    // empty when unknown.
    static QString NormalizeSecurityExchange(QString exchange);
    // The security code left-padded with "0" to the code length of the broker exchange
    // given ("1" on a six-digit exchange gives "000001"); unchanged when no longer.
    static QString FillSecurityIDByZeros(const QString& securityID, const QString& exchange);
    // The symbol of a code on a customer's exchange: "600000" on "sh" gives "600000.SH".
    // The code unchanged when the exchange is unknown or has no symbol suffix.
    static QString AssembleSymbolBySecurityIDAndExchange(const QString& securityID, const QString& exchange);
    // The display name of an exchange; on the Beijing exchange a non-empty symbol suffix
    // chooses the name (the exchange and the share-transfer market it hosts differ).
    static QString GetExchangeName(const QString& exchange, const QString& symbolPost = QString());

    // ---- Price types and order states ----

    // A customer's market price type in the broker's vocabulary (toBroker), or a broker's
    // back in the customer's; empty when unknown.
    static QString TransMarketPriceTypeFromCustomer(const QString& priceType, bool toBroker);
    static QStringList GetCancelableOrderStatusList();
    static bool IsOrderStatusCancelable(const QString& status);

    // ---- Side unions ----

    static QString GetSideUnionChineseName(const QString& sideUnion);
    // The order field values that identify an order of the side union.
    static QMap<QString, QVariant> GetCondMapBySideUnion(const QString& sideUnion);
    // The order fields of the side union, with values that depend on the order (such as
    // its exchange) chosen from the context, a map of the order's fields.
    static QMap<QString, QVariant> GetOrderMapBySideUnion(const QString& sideUnion,
                                                          const QMap<QString, QVariant>& context);

    // ---- Quantities and profit ----
    // Floating-point quantities are made whole by truncation after a nudge of 0.000001
    // away from zero (2.5 gives 2, 99.9999995 gives 100). Steps must be positive.

    // How much of a holding may be sold when `wanted` is asked: all of it when the holding
    // is no larger; 0 below the minimum; otherwise whole steps, the holding's odd lot
    // replacing the part of `wanted` above its last step when that part reaches the odd lot.
    static qint64 GetSoldableQty(double wanted, double available, int step, int minimum);
    // A total sell quantity spread over holdings, one quantity per holding in list order;
    // empty for an unknown strategy.
    static QList<qint64> GetSoldableQtyList(double total, const QList<double>& availableList, int step, int minimum,
                                            SoldQtyAllocStrategy strategy);
    // The value in whole steps, or 0 below the minimum.
    static qint64 GetFloorByStepAndMinLimit(double value, int step, int minimum);
    // Today's profit of a position: bought today valued at the last price, held from before
    // valued against the previous close, and sold today against the previous close.
    static double calcTodayProfit(qint64 heldQty, double lastPrice, double preClosePrice, qint64 buyQty,
                                  double buyAmount, qint64 sellQty, double sellAmount);
    // todayProfit / (first - todayProfit + max(fourth - third, 0)); 0 with errorText set to
    // "持仓金额为0" when that denominator is not positive. errorText is untouched otherwise.
    static double calcTodayProfitRate(QString& errorText, const double& first, const double& todayProfit,
                                      const double& third, const double& fourth);
};

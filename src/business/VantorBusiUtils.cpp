#include "VantorBusiUtils.h"

#include "VantorBusiUtils_p.h"
#include "VantorQuantityRules.h"

QString VantorBusiUtils::NormalizeSecurityExchange(QString exchange)
{
    return VantorBusiUtils_p::instance()->NormalizeSecurityExchange(std::move(exchange));
}

QString VantorBusiUtils::FillSecurityIDByZeros(const QString& securityID, const QString& exchange)
{
    return VantorBusiUtils_p::instance()->FillSecurityIDByZeros(securityID, exchange);
}

QString VantorBusiUtils::AssembleSymbolBySecurityIDAndExchange(const QString& securityID, const QString& exchange)
{
    return VantorBusiUtils_p::instance()->AssembleSymbolBySecurityIDAndExchange(securityID, exchange);
}

QString VantorBusiUtils::GetExchangeName(const QString& exchange, const QString& symbolPost)
{
    return VantorBusiUtils_p::instance()->GetExchangeName(exchange, symbolPost);
}

QString VantorBusiUtils::TransMarketPriceTypeFromCustomer(const QString& priceType, bool toBroker)
{
    return VantorBusiUtils_p::instance()->TransMarketPriceTypeFromCustomer(priceType, toBroker);
}

QStringList VantorBusiUtils::GetCancelableOrderStatusList()
{
    return VantorBusiUtils_p::instance()->GetCancelableOrderStatusList();
}

bool VantorBusiUtils::IsOrderStatusCancelable(const QString& status)
{
    return VantorBusiUtils_p::instance()->IsOrderStatusCancelable(status);
}

QString VantorBusiUtils::GetSideUnionChineseName(const QString& sideUnion)
{
    return VantorBusiUtils_p::instance()->GetSideUnionChineseName(sideUnion);
}

QMap<QString, QVariant> VantorBusiUtils::GetCondMapBySideUnion(const QString& sideUnion)
{
    return VantorBusiUtils_p::instance()->GetCondMapBySideUnion(sideUnion);
}

QMap<QString, QVariant> VantorBusiUtils::GetOrderMapBySideUnion(const QString& sideUnion,
                                                                const QMap<QString, QVariant>& context)
{
    return VantorBusiUtils_p::instance()->GetOrderMapBySideUnion(sideUnion, context);
}

qint64 VantorBusiUtils::GetSoldableQty(double wanted, double available, int step, int minimum)
{
    return VantorQuantityRules::GetSoldableQty(wanted, available, step, minimum);
}

QList<qint64> VantorBusiUtils::GetSoldableQtyList(double total, const QList<double>& availableList, int step,
                                                  int minimum, SoldQtyAllocStrategy strategy)
{
    return VantorQuantityRules::GetSoldableQtyList(total, availableList, step, minimum, strategy);
}

qint64 VantorBusiUtils::GetFloorByStepAndMinLimit(double value, int step, int minimum)
{
    return VantorQuantityRules::GetFloorByStepAndMinLimit(value, step, minimum);
}

double VantorBusiUtils::calcTodayProfit(qint64 heldQty, double lastPrice, double preClosePrice, qint64 buyQty,
                                        double buyAmount, qint64 sellQty, double sellAmount)
{
    return VantorQuantityRules::calcTodayProfit(heldQty, lastPrice, preClosePrice, buyQty, buyAmount, sellQty,
                                                sellAmount);
}

double VantorBusiUtils::calcTodayProfitRate(QString& errorText, const double& first, const double& todayProfit,
                                            const double& third, const double& fourth)
{
    return VantorQuantityRules::calcTodayProfitRate(errorText, first, todayProfit, third, fourth);
}

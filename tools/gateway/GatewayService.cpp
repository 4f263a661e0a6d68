#include "GatewayService.h"

#include "GatewayDatabase.h"
#include "GatewayFaults.h"
#include "GatewayLogging.h"
#include "GatewayReply.h"

#include <CUnPackMessageCommon.h>
#include <VantorFields.h>
#include <ZentraFields.h>

#include <QTime>

#include <cmath>
#include <limits>

namespace {
namespace Sys = Zentra_Fields::System;
namespace S = Zentra_Fields::Security;
namespace Fn = Zentra_Values::FunctionId;
namespace Ctl = Vantor_Fields::GatewayControl;

constexpr int defaultPageSize = 1000;
constexpr int maxPageSize = 100000;

GatewayService::Outcome failed(const QString& text, bool failureFrame = false)
{
    GatewayService::Outcome out;
    out.failed = failureFrame;
    out.message = GatewayReply::failure(text);
    return out;
}

int intField(const QVariantMap& row, const char* key, int fallback)
{
    bool ok = false;
    const int v = row.value(QLatin1String(key)).toInt(&ok);
    return ok ? v : fallback;
}

// A setting of the control function: absent leaves `value` as it is; false when it is given
// but is no number in range (NaN neither).
bool setting(const QVariantMap& row, const char* key, double low, double high, double* value)
{
    const QVariant v = row.value(QLatin1String(key));
    if (!v.isValid())
        return true;
    bool ok = false;
    const double x = v.toDouble(&ok);
    if (!ok || !(x >= low && x <= high))
        return false;
    *value = x;
    return true;
}
} // namespace

GatewayService::GatewayService(GatewayDatabase& db, GatewayFaults& faults)
    : m_db(db)
    , m_faults(faults)
{
}

bool GatewayService::isControl(const QString& functionId)
{
    return functionId == QLatin1String(Fn::gatewayControl);
}

GatewayService::Outcome GatewayService::handle(const QString& functionId, const QVariant& msg)
{
    CUnPackMessageCommon unpack;
    // Grouped and plain messages both read back as flat rows.
    if (!unpack.SetUnPackMsg(msg, true))
        return failed(QStringLiteral("请求消息格式错误"), true);
    unpack.SetCurrentRow(0);
    const QVariantMap head = unpack.GetRowValue();

    if (functionId == QLatin1String(Fn::funds)) {
        Outcome out;
        out.message = GatewayReply::fromPage(m_db.funds());
        return out;
    }
    if (functionId == QLatin1String(Fn::positions))
        return positions(head);
    if (functionId == QLatin1String(Fn::orders) || functionId == QLatin1String(Fn::trades))
        return pageNumbered(functionId, head);
    if (functionId == QLatin1String(Fn::placeOrder))
        return placeOrder(head);
    if (functionId == QLatin1String(Fn::batchOrder)) {
        QList<QVariantMap> rows;
        for (int i = 0; i < unpack.GetRowCount(); ++i) {
            unpack.SetCurrentRow(i);
            rows.append(unpack.GetRowValue());
        }
        return batchOrder(rows);
    }
    if (functionId == QLatin1String(Fn::cancelOrder))
        return cancelOrder(head);
    if (isControl(functionId))
        return control(head);
    qCInfo(lcGateway).noquote() << "GatewayService::handle" << QStringLiteral("不支持的功能号%1").arg(functionId);
    return failed(QStringLiteral("不支持的功能号"), true);
}

GatewayService::Outcome GatewayService::positions(const QVariantMap& head)
{
    // The client ends a position query on the first page shorter than it asked for, so a
    // count the gateway would not serve exactly is refused rather than changed.
    const int count = intField(head, Sys::requestNumber, defaultPageSize);
    if (count < 1 || count > maxPageSize)
        return failed(QStringLiteral("请求条数%1无效，应在1到%2之间").arg(count).arg(maxPageSize));
    Outcome out;
    out.message = GatewayReply::fromPage(m_db.positions(head.value(QLatin1String(Sys::positionStr)).toString(), count));
    return out;
}

GatewayService::Outcome GatewayService::pageNumbered(const QString& functionId, const QVariantMap& head)
{
    const int pageNo = intField(head, Sys::pageNo, 0);
    const int pageSize = qBound(1, intField(head, Sys::pageSize, defaultPageSize), maxPageSize);
    if (pageNo < 0)
        return failed(QStringLiteral("页码不能为负数"));
    Outcome out;
    out.message = GatewayReply::fromPage(functionId == QLatin1String(Fn::orders) ? m_db.orders(pageNo, pageSize)
                                                                                 : m_db.trades(pageNo, pageSize));
    return out;
}

QString GatewayService::readOrder(const QVariantMap& row, const QVariantMap& defaults, GatewayOrder* order) const
{
    auto field = [&](const char* key) {
        const QString k = QLatin1String(key);
        return row.contains(k) ? row.value(k) : defaults.value(k);
    };
    order->tradingAccount = field(Zentra_Fields::UserAccount::tradingAccount).toString();
    if (order->tradingAccount.isEmpty())
        order->tradingAccount = GatewayDatabase::defaultAccount();
    order->symbol = field(S::symbol).toString().trimmed();
    order->exchange = field(S::exchange).toString();
    order->side = field(S::side).toString();
    if (order->side.isEmpty())
        order->side = QLatin1String(Zentra_Values::Side::buy);
    bool priceOk = false;
    bool qtyOk = false;
    order->price = field(S::price).toDouble(&priceOk);
    order->orderQty = field(S::orderQty).toLongLong(&qtyOk);
    order->cumQty = 0;
    order->orderStatus = QLatin1String(Zentra_Values::OrderStatus::pendingNew);
    order->orderTime = QTime::currentTime().toString(QStringLiteral("HH:mm:ss"));
    if (order->symbol.isEmpty())
        return QStringLiteral("证券代码不能为空");
    if (order->side != QLatin1String(Zentra_Values::Side::buy) && order->side != QLatin1String(Zentra_Values::Side::sell))
        return QStringLiteral("买卖方向无效");
    if (!priceOk || !std::isfinite(order->price) || order->price <= 0)
        return QStringLiteral("委托价格无效");
    if (!qtyOk || order->orderQty <= 0)
        return QStringLiteral("委托数量必须大于0");
    return QString();
}

GatewayService::Outcome GatewayService::placeOrder(const QVariantMap& head)
{
    GatewayOrder order;
    const QString invalid = readOrder(head, {}, &order);
    if (!invalid.isEmpty())
        return failed(invalid);
    if (!m_db.insertOrder(order))
        return failed(QStringLiteral("委托保存失败"));
    Outcome out;
    out.message = GatewayReply::fromRows({order.toRow()});
    out.placed.append(order);
    return out;
}

GatewayService::Outcome GatewayService::batchOrder(const QList<QVariantMap>& rows)
{
    // Row 0 carries what the orders share; the orders are the rows after it.
    const QVariantMap common = rows.value(0);
    const int count = intField(common, Sys::subGroupNumber, rows.size() - 1);
    if (count <= 0)
        return failed(QStringLiteral("批量委托没有委托"));
    if (count != rows.size() - 1)
        return failed(QStringLiteral("批量委托笔数不符：声明%1笔，收到%2笔").arg(count).arg(rows.size() - 1));
    QList<GatewayOrder> orders;
    for (int i = 1; i <= count; ++i) {
        GatewayOrder order;
        const QString invalid = readOrder(rows.at(i), common, &order);
        if (!invalid.isEmpty())
            return failed(QStringLiteral("第%1笔委托：%2").arg(i).arg(invalid));
        orders.append(order);
    }
    Outcome out;
    QList<QVariantMap> replyRows;
    for (GatewayOrder& order : orders) {
        if (!m_db.insertOrder(order))
            return failed(QStringLiteral("委托保存失败"));
        replyRows.append(order.toRow());
        out.placed.append(order);
    }
    out.message = GatewayReply::fromRows(replyRows);
    return out;
}

GatewayService::Outcome GatewayService::cancelOrder(const QVariantMap& head)
{
    GatewayOrder order;
    if (!m_db.findOrder(head.value(QLatin1String(S::orderID)).toString(), &order))
        return failed(QStringLiteral("委托不存在"));
    if (order.isFinal())
        return failed(QStringLiteral("委托已结束，不能撤单"));
    order.orderStatus = QLatin1String(Zentra_Values::OrderStatus::canceled);
    if (!m_db.updateOrder(order))
        return failed(QStringLiteral("撤单失败"));
    Outcome out;
    out.message = GatewayReply::fromRows({order.toRow()});
    out.canceled.append(order);
    return out;
}

GatewayService::Outcome GatewayService::control(const QVariantMap& head)
{
    // Every value is read and checked before anything changes: a refused request changes
    // nothing. A value left out stays -1, below every valid one.
    double latency = -1;
    if (!setting(head, Ctl::latencyMs, 0, std::numeric_limits<int>::max(), &latency))
        return failed(QStringLiteral("%1无效：%2，应为不小于0的毫秒数")
                          .arg(QLatin1String(Ctl::latencyMs), head.value(QLatin1String(Ctl::latencyMs)).toString()));
    const char* const rateKeys[] = {Ctl::failRate, Ctl::noreplyRate, Ctl::dropRate};
    double rates[] = {-1, -1, -1};
    for (int i = 0; i < 3; ++i) {
        if (!setting(head, rateKeys[i], 0, 1, &rates[i]))
            return failed(QStringLiteral("%1无效：%2，应为0到1之间的数")
                              .arg(QLatin1String(rateKeys[i]), head.value(QLatin1String(rateKeys[i])).toString()));
    }
    if (head.value(QLatin1String(Ctl::reset)).toBool())
        m_faults.reset();
    const QString target = head.value(QLatin1String(Ctl::targetFunction)).toString();
    GatewayFaultRates r = target.isEmpty() ? m_faults.global() : m_faults.rates(target);
    if (latency >= 0)
        r.latencyMs = int(latency);
    double* const fields[] = {&r.failRate, &r.noreplyRate, &r.dropRate};
    for (int i = 0; i < 3; ++i) {
        if (rates[i] >= 0)
            *fields[i] = rates[i];
    }
    if (target.isEmpty())
        m_faults.setGlobal(r);
    else
        m_faults.setForFunction(target, r);
    qCInfo(lcGateway).noquote() << "GatewayService::control"
                                << QStringLiteral("功能号%1：延迟%2ms，失败率%3，无应答率%4，断线率%5")
                                       .arg(target.isEmpty() ? QStringLiteral("全部") : target, QString::number(r.latencyMs),
                                            QString::number(r.failRate), QString::number(r.noreplyRate),
                                            QString::number(r.dropRate));
    Outcome out;
    out.message = GatewayReply::fromRows({});
    return out;
}

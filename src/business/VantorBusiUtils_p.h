#pragma once

#include <QHash>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

// The trading business dictionaries behind VantorBusiUtils: exchanges and symbols, market
// price types, cancelable order states and the side unions (combined trading directions)
// with the order fields and the identifying conditions of each.
//
// Everything is read from the static configuration store (CDataBase) in the constructor
// and never changed afterwards, so every operation only reads and may be called from any
// thread. The process keeps one instance, built on first use; a test builds its own after
// pointing the store at a configuration of its own.
class VantorBusiUtils_p
{
public:
    using VariantDict = QMap<QString, QVariant>;

    static VantorBusiUtils_p* instance();

    // Reads the static configuration store as it stands now.
    VantorBusiUtils_p();

    VantorBusiUtils_p(const VantorBusiUtils_p&) = delete;
    VantorBusiUtils_p& operator=(const VantorBusiUtils_p&) = delete;

    // The broker's code of a customer's exchange code (any case); empty when unknown.
    QString NormalizeSecurityExchange(QString exchange) const;
    // The code left-padded with "0" to the code length of the (broker) exchange given.
    QString FillSecurityIDByZeros(const QString& securityID, const QString& exchange) const;
    // "<padded code>.<suffix>" for a customer's exchange code; the code unchanged when the
    // exchange has no symbol suffix.
    QString AssembleSymbolBySecurityIDAndExchange(const QString& securityID, const QString& exchange) const;
    // The display name of an exchange. The Beijing exchange, which also carries the
    // over-the-counter market, is named by the symbol suffix when one is given.
    QString GetExchangeName(const QString& exchange, const QString& symbolPost) const;
    // A market price type in the broker's vocabulary (toBroker) or back in the customer's.
    QString TransMarketPriceTypeFromCustomer(const QString& priceType, bool toBroker) const;
    QStringList GetCancelableOrderStatusList() const;
    bool IsOrderStatusCancelable(const QString& status) const;
    // Read from the configuration store at each call.
    QString GetSideUnionChineseName(const QString& sideUnion) const;
    // The field values that identify an order of the side union.
    VariantDict GetCondMapBySideUnion(const QString& sideUnion) const;
    // The fields that an order of the side union carries; a value that names a reference
    // ("_...") is chosen by the reference's selector field as the context holds it.
    VariantDict GetOrderMapBySideUnion(const QString& sideUnion, const VariantDict& context) const;
    // Whether the new-bond subscription quota is switched on.
    bool isNewBondQuotaOn() const { return m_newBondQuotaOn; }

private:
    void loadSideUnionOrderDict(const QMessageLogger& log);
    void loadSideUnionCondDict(const QMessageLogger& log);
    VariantDict sideUnionFields(const QStringList& parts) const;

    QMap<QString, QString> m_exchangeDict;
    QMap<QString, QString> m_exchangeCodeLengthDict;
    QMap<QString, QString> m_exchangeSymbolPostDict;
    QHash<QString, QString> m_exchangeNameHash;
    QHash<QString, QString> m_symbolPostNameHash;
    QStringList m_cancelableOrderStatusList;
    QMap<QString, VariantDict> m_sideUnionCondDict;
    QMap<QString, VariantDict> m_sideUnionOrderDict;
    QMap<QString, QMap<QString, VariantDict>> m_sideUnionOrderRefDict;
    QMap<QString, QString> m_priceCust2BrokerMap;
    QMap<QString, QString> m_priceBroker2CustMap;
    bool m_newBondQuotaOn = false;
    // The order fields that the parts of a side-union entry fill, position by position.
    QStringList m_sideUnionFieldList;
};

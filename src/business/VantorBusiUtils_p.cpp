#include "VantorBusiUtils_p.h"

#include "VantorLogging.h"

#include <CDataBase.h>
#include <VantorConstants.h>
#include <VantorFields.h>
#include <ZentraFields.h>

namespace {
constexpr char ctorName[] = "VantorBusiUtils_p::VantorBusiUtils_p";
constexpr char referencePrefix[] = "_";
constexpr int sideUnionMaxParts = 5;
constexpr int sideUnionOrderMinParts = 3;

// No exchange has codes longer than this; a longer length in the configuration is a
// slip (a length of two thousand million would ask for gigabytes of zeros).
constexpr int longestSecurityCode = 255;

// Left-pads a security code with "0" to the given length, when that is longer.
QString padWithZeros(const QString& securityID, const QString& lengthText, const char* caller)
{
    const int length = lengthText.toInt();
    if (length > longestSecurityCode) {
        qCWarning(lcBusiness).noquote() << caller << QStringLiteral("证券代码长度配置无效：%1，代码不补零").arg(lengthText);
        return securityID;
    }
    if (length > 0 && length > securityID.size())
        return QString(length - securityID.size(), QLatin1Char('0')) + securityID;
    return securityID;
}
} // namespace

VantorBusiUtils_p* VantorBusiUtils_p::instance()
{
    static VantorBusiUtils_p theInstance;
    return &theInstance;
}

VantorBusiUtils_p::VantorBusiUtils_p()
{
    namespace Key = VantorConstants::DictionaryKey;
    CDataBase* store = CDataBase::GetInstance();
    m_exchangeDict = store->GetStaticValuesBySection(Key::CustomerExchange2Broker);
    m_exchangeCodeLengthDict = store->GetStaticValuesBySection(Key::CodeLengthDict);
    m_exchangeSymbolPostDict = store->GetStaticValuesBySection(Key::Markert2SymbolPost);
    m_priceCust2BrokerMap = store->GetStaticValuesBySection(Key::MarketPriceTypeDict);
    // Several customer types may share one broker type: the last in key order answers for
    // it on the way back.
    for (auto it = m_priceCust2BrokerMap.cbegin(); it != m_priceCust2BrokerMap.cend(); ++it)
        m_priceBroker2CustMap.insert(it.value(), it.key());

    qCDebug(lcBusiness).noquote().nospace() << ctorName << " m_exchangeDict = " << m_exchangeDict;
    qCDebug(lcBusiness).noquote().nospace() << ctorName << " m_exchangeCodeLengthDict = " << m_exchangeCodeLengthDict;
    qCDebug(lcBusiness).noquote().nospace() << ctorName << " m_exchangeSymbolPostDict = " << m_exchangeSymbolPostDict;
    qCDebug(lcBusiness).noquote().nospace() << ctorName << " m_priceCust2BrokerMap = " << m_priceCust2BrokerMap;
    qCDebug(lcBusiness).noquote().nospace() << ctorName << " m_priceBroker2CustMap = " << m_priceBroker2CustMap;

    m_cancelableOrderStatusList = QStringList{
        Zentra_Values::OrderStatus::pendingNew,      Zentra_Values::OrderStatus::newOrder,
        Zentra_Values::OrderStatus::pendingCancel,   Zentra_Values::OrderStatus::partiallyFilled,
        Zentra_Values::OrderStatus::partiallyFilledForCancel,
    };
    m_sideUnionFieldList = QStringList{
        Zentra_Fields::Security::side,           Zentra_Fields::Security::entrustType,
        Zentra_Fields::UserAccount::entrustProp, Zentra_Fields::Security::positionEffect,
        Vantor_Fields::SecurityProvideLoan::positionProp,
    };

    // The dictionaries' lines are the constructor's: they carry its file, line and function.
    const QMessageLogger log(QT_MESSAGELOG_FILE, QT_MESSAGELOG_LINE, QT_MESSAGELOG_FUNC);
    loadSideUnionOrderDict(log);
    loadSideUnionCondDict(log);

    m_newBondQuotaOn = store->GetStaticCfgValue(Key::NewBondQuotaOn, Key::NewBondQuotaOn).toInt() == 1;

    m_symbolPostNameHash.clear();
    const auto postNames = store->GetStaticValuesBySection(Zentra_Fields::UserAccount::SymbolPost);
    for (auto it = postNames.cbegin(); it != postNames.cend(); ++it)
        m_symbolPostNameHash.insert(it.key(), it.value());
    m_exchangeNameHash.clear();
    const auto exchangeNames = store->GetStaticValuesBySection(Key::exchangeChineseName);
    for (auto it = exchangeNames.cbegin(); it != exchangeNames.cend(); ++it)
        m_exchangeNameHash.insert(it.key(), it.value());
}

VantorBusiUtils_p::VariantDict VantorBusiUtils_p::sideUnionFields(const QStringList& parts) const
{
    VariantDict fields;
    for (int i = 0; i < parts.size() && i < m_sideUnionFieldList.size(); ++i) {
        if (!parts.at(i).isEmpty())
            fields.insert(m_sideUnionFieldList.at(i), parts.at(i));
    }
    return fields;
}

// Side unions read "side|entrustType|entrustProp[|positionEffect[|positionProp]]"; an empty
// part leaves its field out. Keys beginning with "_" define references instead:
// "selectorField_value:result&value:result...".
void VantorBusiUtils_p::loadSideUnionOrderDict(const QMessageLogger& log)
{
    const auto section = CDataBase::GetInstance()->GetStaticValuesBySection(
        VantorConstants::DictionaryKey::SideUnionOrderDict);
    const auto warnBroken = [&log](const QString& key, const QString& raw) {
        log.warning(lcBusiness()).noquote()
            << ctorName << QStringLiteral("SideUnionOrderDict配置损坏，字段%1缺失必要值，内容：%2").arg(key, raw);
    };
    for (auto it = section.cbegin(); it != section.cend(); ++it) {
        const QString& key = it.key();
        const QString& raw = it.value();
        if (key.startsWith(QLatin1String(referencePrefix))) {
            const QStringList parts = raw.split(QLatin1Char('_'));
            if (parts.size() < 2) {
                warnBroken(key, raw);
                continue;
            }
            VariantDict choices;
            for (const QString& choice : parts.at(1).split(QLatin1Char('&'))) {
                const QStringList pieces = choice.split(QLatin1Char(':'));
                if (pieces.size() < 2) {
                    warnBroken(key, raw);
                    continue;
                }
                choices.insert(pieces.at(0), pieces.at(1));
            }
            m_sideUnionOrderRefDict[key].insert(parts.at(0), choices);
            continue;
        }
        const QStringList parts = raw.split(QLatin1Char('|'));
        if (parts.size() < sideUnionOrderMinParts || parts.size() > sideUnionMaxParts) {
            warnBroken(key, raw);
            continue;
        }
        m_sideUnionOrderDict.insert(key, sideUnionFields(parts));
    }
}

// Conditions may name as few fields as wanted, only the side for instance.
void VantorBusiUtils_p::loadSideUnionCondDict(const QMessageLogger& log)
{
    const auto section = CDataBase::GetInstance()->GetStaticValuesBySection(
        VantorConstants::DictionaryKey::SideUnionCondDict);
    for (auto it = section.cbegin(); it != section.cend(); ++it) {
        const QStringList parts = it.value().split(QLatin1Char('|'));
        if (parts.size() > sideUnionMaxParts) {
            log.warning(lcBusiness()).noquote()
                << ctorName
                << QStringLiteral("SideUnionCondDict配置损坏，字段%1缺失必要值，内容：%2").arg(it.key(), it.value());
            continue;
        }
        m_sideUnionCondDict.insert(it.key(), sideUnionFields(parts));
    }
    if (lcBusiness().isDebugEnabled())
        log.debug(lcBusiness()).noquote() << ctorName << m_sideUnionCondDict;
}

QString VantorBusiUtils_p::NormalizeSecurityExchange(QString exchange) const
{
    exchange = exchange.toUpper();
    return m_exchangeDict.value(exchange);
}

QString VantorBusiUtils_p::FillSecurityIDByZeros(const QString& securityID, const QString& exchange) const
{
    return padWithZeros(securityID, m_exchangeCodeLengthDict.value(exchange, QStringLiteral("0")),
                        "VantorBusiUtils_p::FillSecurityIDByZeros");
}

QString VantorBusiUtils_p::AssembleSymbolBySecurityIDAndExchange(const QString& securityID,
                                                                 const QString& exchange) const
{
    const QString brokerExchange = m_exchangeDict.value(exchange.toUpper());
    const QString suffix = m_exchangeSymbolPostDict.value(brokerExchange);
    if (suffix.isEmpty())
        return securityID;
    return padWithZeros(securityID, m_exchangeCodeLengthDict.value(brokerExchange, QStringLiteral("0")),
                        "VantorBusiUtils_p::AssembleSymbolBySecurityIDAndExchange")
        + QLatin1Char('.') + suffix;
}

QString VantorBusiUtils_p::GetExchangeName(const QString& exchange, const QString& symbolPost) const
{
    if (exchange == QLatin1String(Vantor_Values::Exchange::bj) && !symbolPost.isEmpty())
        return m_symbolPostNameHash.value(symbolPost);
    return m_exchangeNameHash.value(exchange);
}

QString VantorBusiUtils_p::TransMarketPriceTypeFromCustomer(const QString& priceType, bool toBroker) const
{
    return toBroker ? m_priceCust2BrokerMap.value(priceType) : m_priceBroker2CustMap.value(priceType);
}

QStringList VantorBusiUtils_p::GetCancelableOrderStatusList() const
{
    return m_cancelableOrderStatusList;
}

bool VantorBusiUtils_p::IsOrderStatusCancelable(const QString& status) const
{
    return m_cancelableOrderStatusList.contains(status, Qt::CaseSensitive);
}

QString VantorBusiUtils_p::GetSideUnionChineseName(const QString& sideUnion) const
{
    return CDataBase::GetInstance()->GetStaticCfgValue(VantorConstants::DictionaryKey::sideUnionKey, sideUnion);
}

VantorBusiUtils_p::VariantDict VantorBusiUtils_p::GetCondMapBySideUnion(const QString& sideUnion) const
{
    return m_sideUnionCondDict.value(sideUnion);
}

VantorBusiUtils_p::VariantDict VantorBusiUtils_p::GetOrderMapBySideUnion(const QString& sideUnion,
                                                                         const VariantDict& context) const
{
    VariantDict order = m_sideUnionOrderDict.value(sideUnion);
    for (auto it = order.begin(); it != order.end(); ++it) {
        const QString value = it.value().toString();
        if (!value.startsWith(QLatin1String(referencePrefix)))
            continue;
        // An unresolved reference leaves the field empty rather than carry the reference's name.
        QString resolved;
        const QMap<QString, VariantDict> reference = m_sideUnionOrderRefDict.value(value);
        if (!reference.isEmpty()) {
            const QString selector = reference.firstKey();
            if (context.contains(selector))
                resolved = reference.first().value(context.value(selector).toString()).toString();
        }
        it.value() = resolved;
    }
    return order;
}

#pragma once

// Section names of the static configuration store, setting keys and common-info keys.

namespace VantorConstants {
namespace DictionaryKey {
inline constexpr char CustomerExchange2Broker[] = "CustomerExchange2Broker";
inline constexpr char CodeLengthDict[] = "CodeLengthDict";
inline constexpr char Markert2SymbolPost[] = "Markert2SymbolPost";
inline constexpr char exchangeChineseName[] = "ExchangeChineseName";
inline constexpr char MarketPriceTypeDict[] = "MarketPriceTypeDict";
inline constexpr char SideUnionOrderDict[] = "SideUnionOrderDict";
inline constexpr char SideUnionCondDict[] = "SideUnionCondDict";
inline constexpr char sideUnionKey[] = "SideUnionName";
// Section and key of the switch for the new-bond subscription quota ("1" turns it on).
inline constexpr char NewBondQuotaOn[] = "NewBondQuotaOn";
inline constexpr char TemplateFileTag[] = "TemplateFileTag";
} // namespace DictionaryKey

namespace SettingFieldName {
namespace GlobalTradeSetting {
inline constexpr char BaseTrade_BalanceAndQtyShowType[] = "GlobalTradeSetting/BaseTrade_BalanceAndQtyShowType";
} // namespace GlobalTradeSetting
namespace SystemSetting {
inline constexpr char DefaultDir[] = "SystemSetting/DefaultDir";
} // namespace SystemSetting
} // namespace SettingFieldName
} // namespace VantorConstants

namespace Constants {
inline constexpr char CURRENT_MENU[] = "currentMenu";
} // namespace Constants

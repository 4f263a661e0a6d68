#pragma once

// Field names and values of the trading platform's messages. The texts are the names
// themselves so that packed messages and logs read naturally.

namespace Zentra_Fields {
namespace System {
inline constexpr char msgType[] = "msgType";
inline constexpr char pageNo[] = "pageNo";
inline constexpr char pageSize[] = "pageSize";
inline constexpr char positionStr[] = "positionStr";
inline constexpr char requestNumber[] = "requestNumber";
inline constexpr char subGroupNumber[] = "subGroupNumber";
inline constexpr char requestExeStatus[] = "requestExeStatus";
inline constexpr char totalSize[] = "totalSize";
inline constexpr char textDescription[] = "textDescription";
// Rows 1.. of a grouped message travel under this key of row 0.
inline constexpr char groupRows[] = "groupRows";
} // namespace System

namespace UserAccount {
inline constexpr char tradingAccount[] = "tradingAccount";
inline constexpr char SymbolPost[] = "symbolPost";
inline constexpr char entrustProp[] = "entrustProp";
} // namespace UserAccount

namespace Security {
inline constexpr char symbol[] = "symbol";
inline constexpr char securityID[] = "securityID";
inline constexpr char exchange[] = "exchange";
inline constexpr char side[] = "side";
inline constexpr char entrustType[] = "entrustType";
inline constexpr char positionEffect[] = "positionEffect";
inline constexpr char price[] = "price";
inline constexpr char orderQty[] = "orderQty";
inline constexpr char orderID[] = "orderID";
inline constexpr char orderStatus[] = "orderStatus";
inline constexpr char cumQty[] = "cumQty";
} // namespace Security
} // namespace Zentra_Fields

namespace Zentra_Values {
namespace RequestExeStatus {
inline constexpr char success[] = "success";
inline constexpr char fail[] = "fail";
inline constexpr char noChange[] = "noChange";
} // namespace RequestExeStatus

namespace OrderStatus {
inline constexpr char pendingNew[] = "pendingNew";
inline constexpr char newOrder[] = "new";
inline constexpr char partiallyFilled[] = "partiallyFilled";
inline constexpr char filled[] = "filled";
inline constexpr char pendingCancel[] = "pendingCancel";
inline constexpr char partiallyFilledForCancel[] = "partiallyFilledForCancel";
inline constexpr char canceled[] = "canceled";
inline constexpr char rejected[] = "rejected";
} // namespace OrderStatus

namespace UserType {
inline constexpr char sysAdmin[] = "sysAdmin";
inline constexpr char normal[] = "normal";
} // namespace UserType

namespace ClinetInfoUpload {
inline constexpr char UserOperRecord[] = "userOperRecord";
} // namespace ClinetInfoUpload
} // namespace Zentra_Values

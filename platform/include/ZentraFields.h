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
inline constexpr char securityName[] = "securityName";
inline constexpr char orderTime[] = "orderTime";
inline constexpr char tradeID[] = "tradeID";
inline constexpr char tradePrice[] = "tradePrice";
inline constexpr char tradeQty[] = "tradeQty";
inline constexpr char tradeAmount[] = "tradeAmount";
inline constexpr char tradeTime[] = "tradeTime";
inline constexpr char currentQty[] = "currentQty";
inline constexpr char availableQty[] = "availableQty";
inline constexpr char costPrice[] = "costPrice";
inline constexpr char lastPrice[] = "lastPrice";
inline constexpr char marketValue[] = "marketValue";
inline constexpr char profit[] = "profit";
} // namespace Security

namespace Funds {
inline constexpr char currency[] = "currency";
inline constexpr char totalAsset[] = "totalAsset";
inline constexpr char availableFunds[] = "availableFunds";
inline constexpr char frozenFunds[] = "frozenFunds";
inline constexpr char fetchBalance[] = "fetchBalance";
inline constexpr char marketValue[] = "marketValue";
inline constexpr char currentBalance[] = "currentBalance";
inline constexpr char todayProfit[] = "todayProfit";
inline constexpr char updateTime[] = "updateTime";
} // namespace Funds
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

// Function ids of the trading gateway.
namespace FunctionId {
inline constexpr char funds[] = "10001";
inline constexpr char positions[] = "10002";
inline constexpr char orders[] = "10003";
inline constexpr char trades[] = "10004";
inline constexpr char placeOrder[] = "20001";
inline constexpr char batchOrder[] = "20002";
inline constexpr char cancelOrder[] = "20003";
// Sets the simulated gateway's latency and fault rates.
inline constexpr char gatewayControl[] = "90001";
} // namespace FunctionId

// Types of the messages that the gateway pushes without a request.
namespace PushType {
inline constexpr char orderState[] = "orderPush";
} // namespace PushType

namespace Side {
inline constexpr char buy[] = "buy";
inline constexpr char sell[] = "sell";
} // namespace Side

namespace UserType {
inline constexpr char sysAdmin[] = "sysAdmin";
inline constexpr char normal[] = "normal";
} // namespace UserType

namespace ClinetInfoUpload {
inline constexpr char UserOperRecord[] = "userOperRecord";
} // namespace ClinetInfoUpload
} // namespace Zentra_Values

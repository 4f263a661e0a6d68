#pragma once

// Field names and values that the client adds to the platform's own.

namespace Vantor_Fields {
namespace System {
inline constexpr char ModuleName[] = "moduleName";
inline constexpr char TerminalType[] = "terminalType";
inline constexpr char VersionInfo[] = "versionInfo";
inline constexpr char VersionNo[] = "versionNo";
inline constexpr char itemName[] = "itemName";
inline constexpr char itemValue[] = "itemValue";
inline constexpr char itemValueEx[] = "itemValueEx";
inline constexpr char itemType[] = "itemType";
inline constexpr char BusiMsgLevel[] = "busiMsgLevel";
inline constexpr char BusiMsgType[] = "busiMsgType";
inline constexpr char BusiMsgSubType[] = "busiMsgSubType";
} // namespace System

// Fields of the simulated gateway's control function.
namespace GatewayControl {
inline constexpr char targetFunction[] = "targetFunction";
inline constexpr char latencyMs[] = "latencyMs";
inline constexpr char failRate[] = "failRate";
inline constexpr char noreplyRate[] = "noreplyRate";
inline constexpr char dropRate[] = "dropRate";
inline constexpr char reset[] = "reset";
} // namespace GatewayControl

namespace SecurityProvideLoan {
inline constexpr char positionProp[] = "positionProp";
} // namespace SecurityProvideLoan
} // namespace Vantor_Fields

namespace Vantor_Values {
namespace RequestExeStatus {
inline constexpr char timeout[] = "timeout";
} // namespace RequestExeStatus

namespace Exchange {
inline constexpr char sh[] = "SH";
inline constexpr char sz[] = "SZ";
inline constexpr char bj[] = "BJ";
inline constexpr char hk[] = "HK";
} // namespace Exchange

namespace NetGateType {
inline constexpr int TradeGate = 0;
inline constexpr int InfoGate = 1;
} // namespace NetGateType
} // namespace Vantor_Values

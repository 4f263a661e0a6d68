#pragma once

// Business names and event names of the client shell, and the event-id base.

namespace Korvo_Keys {
namespace BusinessName {
inline constexpr char Login[] = "Login";
} // namespace BusinessName

namespace EventMsgName {
inline constexpr char BUSI_MSG_ADD[] = "BUSI_MSG_ADD";
inline constexpr char HealthyScoreChangedEvent[] = "HealthyScoreChangedEvent";
inline constexpr char BottomPopNetSwitchDlgEvent[] = "BottomPopNetSwitchDlgEvent";
} // namespace EventMsgName
} // namespace Korvo_Keys

namespace VantorEventMsgID {
// Ids handed out for event names start right after this base.
inline constexpr int KORVO_BASE_TYPE = 0x40000;
// Uploads of client information (records of user operations among them): 217088.
inline constexpr int CLIENT_INFO_UPLOAD = 0x35000;
} // namespace VantorEventMsgID

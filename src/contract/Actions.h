#pragma once

/// The names of the actions.

namespace actions {

inline constexpr char kSetValues[] = "EventLogManagerSetValues";
inline constexpr char kGetValues[] = "EventLogManagerGetValues";
inline constexpr char kReloadModels[] = "EventLogManagerReloadModels";
inline constexpr char kDeleteModels[] = "EventLogManagerDeleteModels";
inline constexpr char kGetModelNames[] = "EventLogManagerGetModelNames";
inline constexpr char kGetModel[] = "EventLogManagerGetModel";
inline constexpr char kEnableModel[] = "EventLogManagerEnableModel";
inline constexpr char kDisableModel[] = "EventLogManagerDisableModel";
inline constexpr char kCreateEvent[] = "EventLogManagerCreateEvent";
inline constexpr char kUploadEvents[] = "EventLogManagerUploadEvents";
inline constexpr char kDeleteEvents[] = "EventLogManagerDeleteEvents";
inline constexpr char kGetEvents[] = "EventLogManagerGetEvents";
inline constexpr char kCheckAlertMinimumGap[] = "EventLogManagerCheckAlertMinimumGap";
inline constexpr char kCreateAlert[] = "EventLogManagerCreateAlert";

/// An action that only a server has: whoever has it runs on one.
inline constexpr char kServerOnly[] = "MasterReceiveFile";

}  // namespace actions

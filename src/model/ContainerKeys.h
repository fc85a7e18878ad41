#pragma once

/// The names in the containers of the module's actions and upload files. (The alert actions have their own,
/// and so has the host's file store.)

namespace keys {

inline constexpr const char* kModelName = "ModelName";
inline constexpr const char* kModelClass = "ModelClass";
inline constexpr const char* kModelSeverity = "ModelSeverity";
inline constexpr const char* kModelNote = "ModelNote";
inline constexpr const char* kModelEnabled = "ModelEnabled";
inline constexpr const char* kModelChecksum = "ModelChecksum";
inline constexpr const char* kModelDef = "ModelDef";
inline constexpr const char* kModelVars = "ModelVars";
inline constexpr const char* kModelVarName = "ModelVarName";
inline constexpr const char* kModelVarType = "ModelVarType";

inline constexpr const char* kEventParams = "EventParams";
inline constexpr const char* kEventDate = "EventDate";
inline constexpr const char* kEventGmtOffset = "EventGMTOffset";
inline constexpr const char* kEventDeviceId = "EventDeviceId";
inline constexpr const char* kEventGroupId = "EventGroupId";
inline constexpr const char* kEventCount = "EventCount";

inline constexpr const char* kStartDate = "StartDate";
inline constexpr const char* kEndDate = "EndDate";
inline constexpr const char* kPageSize = "PageSize";
inline constexpr const char* kPageNumber = "PageNumber";
inline constexpr const char* kSortColumn = "SortColumn";
inline constexpr const char* kSortDirection = "SortDirection";

inline constexpr const char* kEnableUpload = "EnableUpload";
inline constexpr const char* kEnableAggregation = "EnableAggregation";
inline constexpr const char* kAlertMinimumGap = "AlertMinimumGap";

}  // namespace keys

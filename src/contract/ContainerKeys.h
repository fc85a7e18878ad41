#pragma once

/// The names in the containers of the actions and of the files for the Master. (FileStore.h has the file
/// store's.)

namespace keys {

/// The sub-container of an action's arguments, and of an answer that has the same shape.
inline constexpr const char* kValues = "Values";
/// The sub-container of any other answer.
inline constexpr const char* kResult = "Result";

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

inline constexpr const char* kAlertDescription = "Description";
inline constexpr const char* kAlertStatus = "Status";
inline constexpr const char* kAlertObjectId = "ObjectId";
inline constexpr const char* kAlertEventTimeGmt = "EventTimeGMT";
inline constexpr const char* kAlertVariables = "EventManagerVariables";
inline constexpr const char* kAlertVariableEntry = "EventManagerVariableEntry";
inline constexpr const char* kAlertVariableValue = "EventManagerVariableValue";
inline constexpr const char* kAlertType = "EventManagerType";

}  // namespace keys

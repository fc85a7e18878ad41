#include "alerts/Alerts.h"

#include <ctime>

#include "alerts/AlertGapTable.h"
#include "host/container/LumContainer.h"
#include "host/core/ActionDb.h"
#include "host/core/ActionFrame.h"
#include "host/core/FileStoreAction.h"
#include "host/log/LumDebug.h"
#include "host/thread/LumMutex.h"
#include "host/time/LumTime.h"
#include "module/ModuleObjects.h"

namespace {

constexpr const char* kFileKind = "EventManagerEvent";

/// An action that only a server has: whoever has it runs on one.
constexpr const char* kServerOnlyAction = "MasterReceiveFile";

constexpr const char* kDescription = "Description";
constexpr const char* kStatus = "Status";
constexpr const char* kObjectId = "ObjectId";
constexpr const char* kEventTimeGmt = "EventTimeGMT";
constexpr const char* kEventGmtOffset = "EventGMTOffset";
constexpr const char* kEventDate = "EventDate";
constexpr const char* kVariables = "EventManagerVariables";
constexpr const char* kVariableEntry = "EventManagerVariableEntry";
constexpr const char* kVariableValue = "EventManagerVariableValue";
constexpr const char* kType = "EventManagerType";

LumString ReadText(const LumContainer& container, const char* name) {
    LumString text;
    static_cast<void>(container.GetString(name, text));  // absent is empty
    return text;
}

uint32_t ReadNumber(const LumContainer& container, const char* name) {
    uint32_t number = 0;
    static_cast<void>(container.GetInt32(name, number));  // absent is 0
    return number;
}

/// The values of the alert's variables, each in braces.
LumString JoinVariables(const LumContainer& values) {
    LumString joined;
    LumContainer variables;
    static_cast<void>(values.GetContainer(kVariables, variables));  // an alert may have none
    const uint32_t count = variables.CountValues(kVariableEntry);
    LumContainer entry;
    for (uint32_t i = 0; i < count; ++i) {
        if (variables.GetContainer(kVariableEntry, entry, i)) {
            joined += "{";
            joined += ReadText(entry, kVariableValue);
            joined += "}";
        }
    }
    return joined;
}

/// What an alert is told by where its repeats are looked for.
LumString AlertText(const LumString& description, const LumContainer& values) {
    if (!description.IsEmpty()) {
        return description;
    }
    const LumString variables = JoinVariables(values);
    return variables.IsEmpty() ? LumString("EventManagerEvent") : variables;
}

bool MayPass(const LumString& text, const LumString& status, std::time_t utcTime) {
    LumContainer check;
    check.SetString(kDescription, text);
    check.SetString(kStatus, status);
    check.SetInt32(kEventTimeGmt, static_cast<int32_t>(utcTime));
    return ActionHandler_EventLogManagerCheckAlertMinimumGap(&check) == kActionDone;
}

}  // namespace

uint32_t ActionHandler_EventLogManagerCheckAlertMinimumGap(LumContainer* container) {
    if (container == nullptr) {
        return kActionDone;
    }
    const LumString text = ReadText(*container, kDescription) + "-" + ReadText(*container, kStatus);
    const uint32_t objectId = ReadNumber(*container, kObjectId);
    const uint32_t time = ReadNumber(*container, kEventTimeGmt);
    const auto gap = static_cast<uint32_t>(AlertMinimumGap.load(std::memory_order_relaxed));

    const LumMutexLock lock(AlertGapMutex);
    if (!AlertGapTable.LetThrough(text, objectId, time, gap)) {
        ModuleDebug.TraceWithNL(
            "The following alert has already been created and will not be uploaded to the Master: '%S'",
            text);
        return kActionWithinGap;
    }
    container->Clear();
    return kActionDone;
}

uint32_t ActionHandler_EventLogManagerCreateAlert(LumContainer* container) {
    if (container == nullptr) {
        return kActionDone;
    }
    LumContainer values;
    static_cast<void>(
        container->GetContainer(kActionValues, values));  // an alert may be its description alone
    const LumString description = ReadText(*container, kDescription);
    container->Clear();
    if (!description.IsEmpty()) {
        values.SetString(kDescription, description);
    }
    const std::time_t now = std::time(nullptr);
    if (!MayPass(AlertText(description, values), ReadText(values, kStatus), LumUtcFieldsAsLocal(now))) {
        return kActionDone;
    }
    values.SetInt32(kEventGmtOffset, LumGmtOffset(now));
    values.SetInt32(kEventDate, static_cast<int32_t>(now));
    FileStoreHandOver(values, kFileKind, std::nullopt);
    return kActionDone;
}

void RaiseAlertOnError(const LumString& text) {
    // Errors become alerts one at a time. An alert is made even where the lock cannot be had.
    const LumMutexLock lock(DatabaseMutex);
    const bool onServer = ActionDbIsActionRegistered(kServerOnlyAction);
    LumContainer values;
    values.SetString(kType, onServer ? "_DB_EVENTTYPE_ERRORONSERVER_" : "_DB_EVENTTYPE_ERRORONCLIENT_");
    LumContainer alert;
    alert.SetContainer(kActionValues, std::move(values));
    alert.SetString(kDescription, text);
    ActionHandler_EventLogManagerCreateAlert(&alert);
}

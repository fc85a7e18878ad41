#include "alerts/Alerts.h"

#include <ctime>

#include "alerts/AlertCeiling.h"
#include "alerts/AlertGapTable.h"
#include "contract/Actions.h"
#include "contract/ContainerKeys.h"
#include "contract/FileStore.h"
#include "contract/Statuses.h"
#include "host/container/LumContainer.h"
#include "host/core/ActionDb.h"
#include "host/core/ActionFrame.h"
#include "host/core/FileStoreAction.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"
#include "host/thread/LumMutex.h"
#include "host/time/LumTime.h"
#include "store/DatabaseScope.h"

namespace {

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
    static_cast<void>(values.GetContainer(keys::kAlertVariables, variables));  // an alert may have none
    const uint32_t count = variables.CountPositions(keys::kAlertVariableEntry);
    LumContainer entry;
    for (uint32_t i = 0; i < count; ++i) {
        if (variables.GetContainer(keys::kAlertVariableEntry, entry, i)) {
            joined += "{";
            joined += ReadText(entry, keys::kAlertVariableValue);
            joined += "}";
        }
    }
    return joined;
}

/// The text by which repeats of an alert are recognised.
LumString AlertText(const LumString& description, const LumContainer& values) {
    if (!description.IsEmpty()) {
        return description;
    }
    const LumString variables = JoinVariables(values);
    return variables.IsEmpty() ? LumString("EventManagerEvent") : variables;
}

uint32_t GapMinutes() {
    return static_cast<uint32_t>(AlertMinimumGap.load(std::memory_order_relaxed));
}

/// True where too many alerts have left in this minute. What is held back so must not be remembered as one
/// that has left, or its repeats would be held back as well, until the gap has passed.
bool IsOneTooMany(const LumString& text, const LumString& status, std::time_t now, std::time_t utcTime) {
    if (!AlertCeiling.IsReached(now)) {
        return false;
    }
    bool isRepeat = false;
    {
        const LumMutexLock lock(AlertGapMutex);
        isRepeat =
            AlertGapTable.HoldsBack(text + "-" + status, 0, static_cast<uint32_t>(utcTime), GapMinutes());
    }
    return !isRepeat && !AlertCeiling.Admit(now);
}

bool MayPass(const LumString& text, const LumString& status, std::time_t utcTime) {
    LumContainer check;
    check.SetString(keys::kAlertDescription, text);
    check.SetString(keys::kAlertStatus, status);
    check.SetInt32(keys::kAlertEventTimeGmt, static_cast<int32_t>(utcTime));
    return ActionHandler_EventLogManagerCheckAlertMinimumGap(&check) == kActionDone;
}

/// An alert that was not taken waits in the temporary directory, as long as there are not too many.
void SendAlert(const LumContainer& alert, std::time_t now) {
    LumString path;
    switch (FileStoreHandOver(alert, kFileTypeAlert, std::nullopt, path)) {
        case FileStoreOutcome::kDone:
            AlertsSent().Add();
            break;
        case FileStoreOutcome::kNotTaken:
            if (CountTempFiles() <= kMaxWaitingAlerts) {
                break;
            }
            FileDelete(path, true);
            [[fallthrough]];
        case FileStoreOutcome::kNotMade:
            AlertCeiling.NoteLost(now);
            break;
    }
}

}  // namespace

uint32_t ActionHandler_EventLogManagerCheckAlertMinimumGap(LumContainer* container) {
    if (container == nullptr) {
        return kActionDone;
    }
    const LumString text =
        ReadText(*container, keys::kAlertDescription) + "-" + ReadText(*container, keys::kAlertStatus);
    const uint32_t objectId = ReadNumber(*container, keys::kAlertObjectId);
    const uint32_t time = ReadNumber(*container, keys::kAlertEventTimeGmt);

    const LumMutexLock lock(AlertGapMutex);
    if (!AlertGapTable.LetThrough(text, objectId, time, GapMinutes())) {
        ModuleDebug.TraceWithNL(
            "The following alert has already been created and will not be uploaded to the Master: '%S'",
            text);
        AlertsHeldBack().Add();
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
        container->GetContainer(keys::kValues, values));  // an alert may be its description alone
    const LumString description = ReadText(*container, keys::kAlertDescription);
    if (!description.IsEmpty()) {
        values.SetString(keys::kAlertDescription, description);
    }
    const std::time_t now = std::time(nullptr);
    values.SetInt32(keys::kEventGmtOffset, LumGmtOffset(now));
    values.SetInt32(keys::kEventDate, static_cast<int32_t>(now));
    const LumString text = AlertText(description, values);
    const LumString status = ReadText(values, keys::kAlertStatus);
    const std::time_t utcTime = LumUtcFieldsAsLocal(now);
    if (IsOneTooMany(text, status, now, utcTime) || !MayPass(text, status, utcTime) ||
        !AlertCeiling.Admit(now)) {
        container->Clear();
        return kActionDone;
    }
    SendAlert(values, now);
    container->Clear();
    return kActionDone;
}

void RaiseAlertOnError(const LumString& text) {
    // Errors become alerts one at a time. An alert is made even where the lock cannot be had.
    const LumMutexLock lock(DatabaseMutex);
    const bool onServer = ActionDbIsActionRegistered(actions::kServerOnly);
    LumContainer values;
    values.SetString(keys::kAlertType,
                     onServer ? "_DB_EVENTTYPE_ERRORONSERVER_" : "_DB_EVENTTYPE_ERRORONCLIENT_");
    LumContainer alert;
    alert.SetContainer(keys::kValues, std::move(values));
    alert.SetString(keys::kAlertDescription, text);
    ActionHandler_EventLogManagerCreateAlert(&alert);
}

LumCounter& AlertsSent() {
    static LumCounter& counter =
        LumMetricsCounter("lum_alerts_sent_total", "Alerts handed to the file store.");
    return counter;
}

LumCounter& AlertsHeldBack() {
    static LumCounter& counter =
        LumMetricsCounter("lum_alerts_held_back_total", "Alerts that the minimum gap held back.");
    return counter;
}

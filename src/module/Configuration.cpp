#include "module/Configuration.h"

#include <atomic>
#include <cstdint>
#include <string_view>
#include <utility>

#include "alerts/AlertGapTable.h"
#include "contract/ContainerKeys.h"
#include "events/EventAggregation.h"
#include "events/EventUpload.h"
#include "host/container/LumContainer.h"
#include "host/core/ActionFrame.h"
#include "host/ini/IniFile.h"
#include "host/log/LumDebug.h"
#include "model/ModuleLog.h"
#include "store/Paths.h"

namespace {

constexpr const char* kSection = "EventLogManager";
constexpr int32_t kDefaultAlertMinimumGap = 60;
/// What a value that is not in force stays where the file cannot be read.
constexpr int32_t kUnread = INT32_MIN;

std::atomic<bool> isKnown{false};

constexpr LumRoutine kSetValues(ModuleDebug, "ActionHandler_EventLogManagerSetValues");

/// Takes the flag over from the file, true where it says nothing of it. False, and the one in force stays,
/// where the file cannot be read.
bool LoadFlag(const IniFile& ini, const char* key, std::atomic<bool>& flag) {
    bool value = false;
    // Without the key `value` becomes the default, which is true.
    if (!ini.GetEntryValue(kSection, key, value, true) && !value) {
        return false;
    }
    flag.store(value, std::memory_order_relaxed);
    return true;
}

bool LoadGap(const IniFile& ini) {
    int32_t gap = kUnread;
    ini.GetEntryValue(kSection, keys::kAlertMinimumGap, gap, kDefaultAlertMinimumGap);
    if (gap == kUnread) {
        return false;
    }
    AlertMinimumGap.store(gap, std::memory_order_relaxed);
    return true;
}

/// Writes the value in force; that it is lost with the next reading is an error.
void Write(IniFile& ini, const char* key, int32_t value) {
    if (!ini.WriteEntryValue(kSection, key, value)) {
        kSetValues.Error("Failed to write '%s', the file keeps the former value", key);
    }
}

/// Takes the flag from `values` where it is given as a bool, and writes the one in force.
void ChangeFlag(const LumContainer& values, const char* key, std::atomic<bool>& flag, IniFile& ini) {
    bool value = flag.load(std::memory_order_relaxed);
    static_cast<void>(values.GetBool(key, value));  // of another kind, or absent: the one in force stays
    Write(ini, key, value ? 1 : 0);
    flag.store(value, std::memory_order_relaxed);
}

void ChangeGap(const LumContainer& values, IniFile& ini) {
    int32_t value = AlertMinimumGap.load(std::memory_order_relaxed);
    static_cast<void>(values.GetInt32(keys::kAlertMinimumGap, value));
    Write(ini, keys::kAlertMinimumGap, value);
    AlertMinimumGap.store(value, std::memory_order_relaxed);
}

}  // namespace

void LoadConfiguration() {
    constexpr LumRoutine kRoutine(ModuleDebug, "LoadConfiguration");
    kRoutine.Trace("Entering");
    const IniFile ini(IniFilePath);
    const bool knowsUpload = LoadFlag(ini, keys::kEnableUpload, UploadEnabled);
    const bool knowsAggregation = LoadFlag(ini, keys::kEnableAggregation, AggregationEnabled);
    const bool knowsGap = LoadGap(ini);
    if (knowsUpload && knowsAggregation && knowsGap) {
        isKnown.store(true, std::memory_order_relaxed);
    }

    kRoutine.Trace("Upload flag is %d", UploadEnabled.load() ? 1 : 0);
    kRoutine.Trace("Aggregation flag is %d", AggregationEnabled.load() ? 1 : 0);
    kRoutine.Trace("Alert minimum gap is %u", static_cast<uint32_t>(AlertMinimumGap.load()));
}

bool ConfigurationIsKnown() {
    if (!isKnown.load(std::memory_order_relaxed)) {
        LoadConfiguration();
    }
    return isKnown.load(std::memory_order_relaxed);
}

uint32_t ActionHandler_EventLogManagerSetValues(LumContainer* container) {
    if (container == nullptr) {
        return kActionDone;
    }
    LumContainer values;
    static_cast<void>(
        container->GetContainer(keys::kValues, values));  // without it there is nothing to change
    IniFile ini(IniFilePath);
    for (LumString name; values.GetNextName(name);) {
        if (name == keys::kEnableUpload) {
            ChangeFlag(values, keys::kEnableUpload, UploadEnabled, ini);
        } else if (name == keys::kEnableAggregation) {
            ChangeFlag(values, keys::kEnableAggregation, AggregationEnabled, ini);
        } else if (name == keys::kAlertMinimumGap) {
            ChangeGap(values, ini);
        }
    }
    container->Clear();
    return kActionDone;
}

uint32_t ActionHandler_EventLogManagerGetValues(LumContainer* container) {
    LoadConfiguration();
    if (container == nullptr) {
        return kActionDone;
    }
    LumContainer values;
    values.SetBool(keys::kEnableUpload, UploadEnabled.load(std::memory_order_relaxed));
    values.SetBool(keys::kEnableAggregation, AggregationEnabled.load(std::memory_order_relaxed));
    values.SetInt32(keys::kAlertMinimumGap, AlertMinimumGap.load(std::memory_order_relaxed));
    container->Clear();
    container->SetContainer(keys::kValues, std::move(values));
    return kActionDone;
}

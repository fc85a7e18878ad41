#include "machine/EventStore.h"

#include <algorithm>
#include <utility>

#include "contract/Actions.h"
#include "contract/ContainerKeys.h"
#include "contract/Statuses.h"
#include "host/core/ActionDb.h"
#include "machine/source/RecordId.h"

namespace {

/// How many events are read in one answer.
constexpr uint32_t kPageSize = 1000;
/// Sorting by what no model has leaves the events as they were stored.
constexpr char kNoColumn[] = "";

/// Calls the action with `values` as its arguments; false for every status but done. `answer` is what the
/// container holds then.
bool Ask(const char* action, LumContainer values, LumContainer& answer) {
    LumContainer container;
    container.SetContainer(keys::kValues, std::move(values));
    uint32_t status = kActionFailed;
    if (!ActionDbCallAction(action, container, status) || status != kActionDone) {
        return false;
    }
    static_cast<void>(container.GetContainer(keys::kResult, answer));
    return true;
}

/// Reads the texts at all positions of `name`.
std::set<std::string> TextsOf(const LumContainer& container, const char* name) {
    std::set<std::string> texts;
    for (uint32_t i = 0; i < container.CountPositions(name); ++i) {
        if (const LumString* const text = container.FindString(name, i)) {
            texts.emplace(text->View());
        }
    }
    return texts;
}

/// One page of the model's events in the order of storing, from the `offset`th on.
bool ReadPage(const char* model, uint32_t offset, uint32_t size, LumContainer& page) {
    LumContainer values;
    values.SetString(keys::kModelName, model);
    values.SetString(keys::kSortColumn, kNoColumn);
    values.SetInt32(keys::kPageSize, size);
    values.SetInt32(keys::kPageNumber, offset + 1);
    return Ask(actions::kGetEvents, std::move(values), page);
}

}  // namespace

StoreResult StoreEvent(const MachineEvent& event) {
    LumContainer values;
    values.SetString(keys::kModelName, event.model);
    values.SetContainer(keys::kEventParams, event.params);
    LumContainer container;
    container.SetContainer(keys::kValues, std::move(values));
    uint32_t status = kActionFailed;
    if (!ActionDbCallAction(actions::kCreateEvent, container, status) || status == kActionRefused) {
        return StoreResult::kRefused;
    }
    return status == kActionDone ? StoreResult::kStored : StoreResult::kFailed;
}

bool ListModels(std::set<std::string>& names) {
    LumContainer answer;
    if (!Ask(actions::kGetModelNames, LumContainer(), answer)) {
        return false;
    }
    names = TextsOf(answer, keys::kModelName);
    return true;
}

std::set<std::string> ListParams(const char* model) {
    LumContainer values;
    values.SetString(keys::kModelName, model);
    LumContainer answer;
    LumContainer definition;
    LumContainer params;
    if (!Ask(actions::kGetModel, std::move(values), answer) ||
        !answer.GetContainer(keys::kModelDef, definition) ||
        !definition.GetContainer(keys::kModelVars, params)) {
        return {};
    }
    return TextsOf(params, keys::kModelVarName);
}

void ReloadModels() {
    LumContainer answer;
    // What became of each file is in the log of the event log itself.
    static_cast<void>(Ask(actions::kReloadModels, LumContainer(), answer));
}

void RecordSet::Sort() {
    std::sort(records_.begin(), records_.end());
}

bool RecordSet::Contains(uint64_t record) const {
    return std::binary_search(records_.begin(), records_.end(), record);
}

bool ReadRecords(const char* model, uint32_t count, RecordSet& records) {
    LumContainer page;
    uint32_t total = 0;
    if (!ReadPage(model, 0, 1, page) || !page.GetInt32(keys::kEventCount, total)) {
        return false;
    }
    for (uint32_t offset = total - std::min(count, total); offset < total; offset += kPageSize) {
        if (!ReadPage(model, offset, kPageSize, page)) {
            return false;
        }
        for (uint32_t i = 0; i < page.CountPositions(kRecordParam); ++i) {
            const LumString* const text = page.FindString(kRecordParam, i);
            if (const uint64_t record = text != nullptr ? ParseRecordText(text->View()) : 0; record != 0) {
                records.Add(record);
            }
        }
    }
    records.Sort();
    return true;
}

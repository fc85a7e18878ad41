#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "machine/source/Source.h"

/// What the module asks of the event log, through the actions that any module may call. To be
/// called from any thread.

/// What became of an event.
enum class StoreResult : uint8_t {
    kStored,   ///< it is safe, or its model is disabled and takes none
    kRefused,  ///< its model is not registered
    kFailed,   ///< it may be stored or not: the store could not say
};
[[nodiscard]] StoreResult StoreEvent(const MachineEvent& event);

/// The names of all registered models; false where the event log does not answer.
[[nodiscard]] bool ListModels(std::set<std::string>& names);
/// The parameters of a registered model; empty where there is no such model.
[[nodiscard]] std::set<std::string> ListParams(const char* model);
/// Takes in the definitions that were dropped.
void ReloadModels();

/// A set of record numbers.
class RecordSet {
public:
    /// To be called before Contains is asked about what it adds.
    void Add(uint64_t record) { records_.push_back(record); }
    void Sort();
    [[nodiscard]] bool Contains(uint64_t record) const;
    void Clear() { std::vector<uint64_t>().swap(records_); }

private:
    std::vector<uint64_t> records_;
};

/// Adds the records of the last `count` events that `model` holds, in the order in which they were stored.
/// False where they could not be read.
[[nodiscard]] bool ReadRecords(const char* model, uint32_t count, RecordSet& records);

#pragma once

#include <vector>

#include "machine/journal/JournalSource.h"
#include "machine/source/Models.h"

/// Starts, stops and sleeps of the machine, and changes of its clock.
class StateSource : public JournalSource {
public:
    using JournalSource::JournalSource;

    [[nodiscard]] const char* GetName() const override { return "Machine"; }
    [[nodiscard]] std::vector<const char*> GetModels() const override { return {models::kMachineState}; }

protected:
    [[nodiscard]] Matches GetMatches() const override;
    [[nodiscard]] const std::vector<std::string_view>& GetFields() const override;
    [[nodiscard]] bool Judge(const JournalEntry& entry, MachineEvent& event) override;
};

#pragma once

#include <vector>

#include "machine/journal/JournalSource.h"
#include "machine/source/Models.h"

/// Units that failed, programs that crashed, and kills for lack of memory.
class ServiceSource : public JournalSource {
public:
    using JournalSource::JournalSource;

    [[nodiscard]] const char* GetName() const override { return "Services"; }
    [[nodiscard]] std::vector<const char*> GetModels() const override {
        return {models::kServiceFailure, models::kCrash};
    }

protected:
    [[nodiscard]] Matches GetMatches() const override;
    [[nodiscard]] const std::vector<std::string_view>& GetFields() const override;
    [[nodiscard]] bool Judge(const JournalEntry& entry, MachineEvent& event) override;
};

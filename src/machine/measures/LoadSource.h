#pragma once

#include <vector>

#include "machine/measures/IntervalSource.h"
#include "machine/source/Models.h"

/// How busy the machine is: load, memory, pressure.
class LoadSource : public IntervalSource {
public:
    using IntervalSource::IntervalSource;

    [[nodiscard]] const char* GetName() const override { return "Load"; }
    [[nodiscard]] std::vector<const char*> GetModels() const override { return {models::kMachineLoad}; }

protected:
    [[nodiscard]] bool Measure(std::vector<MachineEvent>& events, LumString& error) override;
};

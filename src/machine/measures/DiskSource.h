#pragma once

#include <vector>

#include "machine/measures/IntervalSource.h"
#include "machine/source/Models.h"

/// How full each file system on a disk of this machine is.
class DiskSource : public IntervalSource {
public:
    using IntervalSource::IntervalSource;

    [[nodiscard]] const char* GetName() const override { return "Disks"; }
    [[nodiscard]] std::vector<const char*> GetModels() const override { return {models::kDiskUsage}; }

protected:
    [[nodiscard]] bool Measure(std::vector<MachineEvent>& events, LumString& error) override;
};

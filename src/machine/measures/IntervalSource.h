#pragma once

#include <cstdint>
#include <ctime>
#include <vector>

#include "machine/source/Source.h"

/// What the sources that measure have in common: a reading every so often, whose position is its moment. A
/// restart does not bring a reading forward. Nothing is missed by reading late, so a reading is not numbered.
class IntervalSource : public Source {
public:
    explicit IntervalSource(uint32_t intervalMs) : intervalMs_(intervalMs) {}

    /// There is nothing to hold open: a reading tells what is missing.
    [[nodiscard]] bool Open(LumString& /*error*/) override { return true; }
    [[nodiscard]] bool ReadSince(const std::string& position, std::size_t limit, SourceBatch& batch,
                                 LumString& error) override;
    [[nodiscard]] uint32_t GetWaitMs() const override { return waitMs_; }

protected:
    /// Takes a reading: events without their time. False, with a sentence in `error`, where that cannot be
    /// had.
    [[nodiscard]] virtual bool Measure(std::vector<MachineEvent>& events, LumString& error) = 0;

private:
    const uint32_t intervalMs_;
    uint32_t waitMs_ = 0;
};

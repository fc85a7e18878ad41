#include "machine/measures/IntervalSource.h"

#include <charconv>
#include <string>

#include "machine/source/RecordId.h"

namespace {

constexpr std::time_t kMsPerSecond = 1000;

}  // namespace

bool IntervalSource::ReadSince(const std::string& position, std::size_t /*limit*/, SourceBatch& batch,
                               LumString& error) {
    const std::time_t now = std::time(nullptr);
    std::time_t last = 0;
    std::from_chars(position.data(), position.data() + position.size(), last);
    const std::time_t interval = static_cast<std::time_t>(intervalMs_) / kMsPerSecond;
    batch.position = position;
    // A last reading that lies ahead is from before the clock was set back.
    if (last <= now && now - last < interval) {
        waitMs_ = static_cast<uint32_t>((interval - (now - last)) * kMsPerSecond);
        return true;
    }
    if (!Measure(batch.events, error)) {
        return false;
    }
    for (MachineEvent& event : batch.events) {
        event.params.SetInt32(kTimeParam, static_cast<int32_t>(now));
    }
    batch.position = std::to_string(now);
    waitMs_ = intervalMs_;
    return true;
}

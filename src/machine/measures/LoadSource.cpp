#include "machine/measures/LoadSource.h"

#include <string>
#include <utility>

#include "machine/measures/Percent.h"
#include "machine/measures/ProcFile.h"
#include "machine/measures/ProcText.h"

namespace {

constexpr char kLoadAverages[] = "/proc/loadavg";
constexpr char kMemory[] = "/proc/meminfo";
constexpr uint64_t kKiBPerMiB = 1024;

/// 0 where the kernel does not keep it.
double Pressure(const char* path) {
    std::string text;
    LumString ignored;
    return ReadProcFile(path, text, ignored) ? ParsePressure(text) : 0.0;
}

void DescribeMemory(const std::string& text, LumContainer& params) {
    const uint64_t total = ParseMemoryKiB(text, "MemTotal");
    const uint64_t used = total - ParseMemoryKiB(text, "MemAvailable");
    const uint64_t swap = ParseMemoryKiB(text, "SwapTotal") - ParseMemoryKiB(text, "SwapFree");
    params.SetInt32("MemoryMb", static_cast<int32_t>(total / kKiBPerMiB));
    params.SetInt32("MemoryUsedMb", static_cast<int32_t>(used / kKiBPerMiB));
    params.SetDouble("MemoryUsedPercent", PercentOf(used, total));
    params.SetInt32("SwapUsedMb", static_cast<int32_t>(swap / kKiBPerMiB));
}

}  // namespace

bool LoadSource::Measure(std::vector<MachineEvent>& events, LumString& error) {
    std::string load;
    std::string memory;
    if (!ReadProcFile(kLoadAverages, load, error) || !ReadProcFile(kMemory, memory, error)) {
        return false;
    }
    MachineEvent event;
    event.model = models::kMachineLoad;
    const LoadAverages averages = ParseLoadAverages(load);
    event.params.SetDouble("Load1", averages.minutes1);
    event.params.SetDouble("Load5", averages.minutes5);
    event.params.SetDouble("Load15", averages.minutes15);
    DescribeMemory(memory, event.params);
    event.params.SetDouble("ProcessorPressure", Pressure("/proc/pressure/cpu"));
    event.params.SetDouble("MemoryPressure", Pressure("/proc/pressure/memory"));
    event.params.SetDouble("DiskPressure", Pressure("/proc/pressure/io"));
    events.push_back(std::move(event));
    return true;
}

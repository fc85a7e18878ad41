#include "machine/Sources.h"

#include "machine/devices/DeviceSource.h"
#include "machine/journal/ServiceSource.h"
#include "machine/journal/SessionSource.h"
#include "machine/journal/StateSource.h"
#include "machine/measures/DiskSource.h"
#include "machine/measures/LoadSource.h"
#include "machine/packages/PackageSource.h"

namespace {

/// Makes a source, unless the settings switch it off.
template <class Made, class... Args>
void Add(std::vector<std::unique_ptr<Source>>& sources, const Settings& settings, const Args&... args) {
    auto source = std::make_unique<Made>(args...);
    if (settings.IsEnabled(source->GetName())) {
        sources.push_back(std::move(source));
    }
}

}  // namespace

std::vector<std::unique_ptr<Source>> MakeSources(const Settings& settings) {
    std::vector<std::unique_ptr<Source>> sources;
    const LumString journal = settings.JournalDirectory();
    Add<PackageSource>(sources, settings, settings.PackageLog(), settings.OldestWanted("Packages"));
    Add<SessionSource>(sources, settings, journal, settings.OldestWanted("Sessions"));
    Add<StateSource>(sources, settings, journal, settings.OldestWanted("Machine"));
    Add<ServiceSource>(sources, settings, journal, settings.OldestWanted("Services"));
    Add<DiskSource>(sources, settings, settings.IntervalMs("Disks"));
    Add<LoadSource>(sources, settings, settings.IntervalMs("Load"));
    Add<DeviceSource>(sources, settings);
    return sources;
}

#include "machine/Sources.h"

#include "machine/DeviceSource.h"
#include "machine/DiskSource.h"
#include "machine/LoadSource.h"
#include "machine/PackageSource.h"
#include "machine/ServiceSource.h"
#include "machine/SessionSource.h"
#include "machine/StateSource.h"

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

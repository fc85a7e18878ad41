#include "machine/Sources.h"

#include <string>

#include <dlfcn.h>

#include "machine/devices/DeviceSource.h"
#include "machine/journal/ServiceSource.h"
#include "machine/journal/SessionSource.h"
#include "machine/journal/StateSource.h"
#include "machine/measures/DiskSource.h"
#include "machine/measures/LoadSource.h"
#include "machine/packages/PackageSource.h"

namespace {

constexpr char kReader[] = "lumjournal";

/// Makes a source, unless the settings switch it off.
template <class Made, class... Args>
void Add(std::vector<std::unique_ptr<Source>>& sources, const Settings& settings, const Args&... args) {
    auto source = std::make_unique<Made>(args...);
    if (settings.IsEnabled(source->GetName())) {
        sources.push_back(std::move(source));
    }
}

/// The program that reads the journal lies beside the module.
LumString FindReader() {
    Dl_info module{};
    const auto* const inside = reinterpret_cast<const void*>(&FindReader);
    const std::string path = ::dladdr(inside, &module) != 0 ? module.dli_fname : "";
    return LumString(path.substr(0, path.rfind('/') + 1) + kReader);
}

}  // namespace

std::vector<std::unique_ptr<Source>> MakeSources(const Settings& settings) {
    std::vector<std::unique_ptr<Source>> sources;
    const JournalPlace journal{settings.JournalDirectory(), FindReader()};
    Add<PackageSource>(sources, settings, settings.PackageLog(), settings.OldestWanted("Packages"));
    Add<SessionSource>(sources, settings, journal, settings.OldestWanted("Sessions"));
    Add<StateSource>(sources, settings, journal, settings.OldestWanted("Machine"));
    Add<ServiceSource>(sources, settings, journal, settings.OldestWanted("Services"));
    Add<DiskSource>(sources, settings, settings.IntervalMs("Disks"));
    Add<LoadSource>(sources, settings, settings.IntervalMs("Load"));
    Add<DeviceSource>(sources, settings);
    return sources;
}

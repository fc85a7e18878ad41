#include "machine/Sources.h"

#include "machine/PackageSource.h"

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
    Add<PackageSource>(sources, settings, settings.PackageLog(), settings.OldestWanted("Packages"));
    return sources;
}

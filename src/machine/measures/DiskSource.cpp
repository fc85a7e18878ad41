#include "machine/measures/DiskSource.h"

#include <string>
#include <utility>

#include <sys/statvfs.h>

#include "machine/measures/Mounts.h"
#include "machine/measures/Percent.h"
#include "machine/measures/ProcFile.h"
#include "machine/source/FieldText.h"

namespace {

constexpr char kMountInfo[] = "/proc/self/mountinfo";
constexpr uint64_t kMiB = uint64_t{1} << 20U;

MachineEvent DescribeMount(const Mount& mount, const struct statvfs& status) {
    const uint64_t block = status.f_frsize;
    const uint64_t used = (status.f_blocks - status.f_bfree) * block;
    const uint64_t usable = used + status.f_bavail * block;
    MachineEvent event;
    event.model = models::kDiskUsage;
    event.params.SetString("MountPoint", FieldText(mount.point));
    event.params.SetString("FileSystem", FieldText(mount.type));
    event.params.SetInt32("SizeMb", static_cast<int32_t>(status.f_blocks * block / kMiB));
    event.params.SetInt32("UsedMb", static_cast<int32_t>(used / kMiB));
    event.params.SetDouble("UsedPercent", PercentOf(used, usable));
    event.params.SetBool("ReadOnly", (status.f_flag & ST_RDONLY) != 0);
    return event;
}

}  // namespace

bool DiskSource::Measure(std::vector<MachineEvent>& events, LumString& error) {
    std::string content;
    if (!ReadProcFile(kMountInfo, content, error)) {
        return false;
    }
    for (const Mount& mount : ParseMounts(content)) {
        struct statvfs status = {};
        // One that cannot be asked was unmounted meanwhile; one without blocks has no size to tell.
        if (::statvfs(mount.point.c_str(), &status) == 0 && status.f_blocks > 0) {
            events.push_back(DescribeMount(mount, status));
        }
    }
    return true;
}

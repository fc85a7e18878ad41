#pragma once

#include <vector>

/// The models that come with the module.

namespace models {

inline constexpr char kPackageHistory[] = "PackageHistory";
inline constexpr char kLogon[] = "Logon";
inline constexpr char kMachineState[] = "MachineState";
inline constexpr char kServiceFailure[] = "ServiceFailure";
inline constexpr char kCrash[] = "Crash";
inline constexpr char kDiskUsage[] = "DiskUsage";
inline constexpr char kMachineLoad[] = "MachineLoad";
inline constexpr char kDeviceChange[] = "DeviceChange";

}  // namespace models

/// A definition file as it is shipped.
struct ShippedModel {
    const char* name;
    const char* definition;
};

/// All of them, the user models before the automatic ones that are filled from them. The texts are those of
/// etc/models, put into the library by the build.
extern const std::vector<ShippedModel> kShippedModels;

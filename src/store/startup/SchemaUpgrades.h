#pragma once

#include <cstdint>
#include <vector>

#include "host/text/LumString.h"

/// Brings a database that an earlier release left behind to the current layout. A model that is to be rebuilt
/// needs its new definition for that: the first step saves its rows into a transitional table and removes the
/// old model, LoadUnregisteredModels then registers the new one, and the second step puts the rows back.
///
/// Called by ModuleInitialise alone, in its order. Every routine acts only while the recorded version is
/// below its own, says its failures in the log, and stops nothing.

/// The models that are rebuilt.
inline constexpr const char* kSoftwareDistribution = "_EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_";
inline constexpr const char* kProhibitedApplication = "_EVENTLOG_MODELNAME_PROHIBITEDAPPLICATION_";
inline constexpr const char* kMonitoredApplication = "_EVENTLOG_MODELNAME_MONITOREDAPPLICATION_";

/// True where the recorded version is strictly below the given one. A version that cannot be read, in whole
/// or in the part that would decide, counts as not smaller: what may be current is not to be upgraded.
[[nodiscard]] bool IsSmallerVersion(uint32_t major, uint32_t minor, uint32_t revision);

/// The statements that record a version, with the build number 0.
[[nodiscard]] std::vector<LumString> VersionStatements(uint32_t major, uint32_t minor, uint32_t revision);

/// Below 5.3.3: saves the events of the software-distribution model, the numeric status 0 or 1 as a token,
/// and removes the model whether or not they were saved.
void UpgradeSoftwareDistributionModelStep1();
/// Puts them into the new table, column by column in its order, and records 5.3.3.0.
void UpgradeSoftwareDistributionModelStep2();

/// Below 6.2.0: UpgradeManagedApplicationModelsStep1.
void Upgrade620_Step1();
/// UpgradeManagedApplicationModelsStep2, then UpgradeModelsWithGMTOffsetStep1; records 6.2.0.0 whatever came
/// of them.
void Upgrade620_Step2();

/// Saves the events of the two managed-application models and removes these models; where saving fails they
/// are kept as they are.
void UpgradeManagedApplicationModelsStep1();
/// Puts them into the new tables, all or none.
void UpgradeManagedApplicationModelsStep2();

/// Below 6.2.0: gives every event table without E_GMT_Offset that column, all tables or none. The rebuilt
/// tables have no indexes.
void UpgradeModelsWithGMTOffsetStep1();

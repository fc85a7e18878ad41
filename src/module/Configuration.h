#pragma once

#include <cstdint>

class LumContainer;

/// Reads the three settings from the file at IniFilePath into UploadEnabled, AggregationEnabled and
/// AlertMinimumGap; one that is missing there takes its default (on, on, 60 minutes). Where the file is there
/// but cannot be read at the moment, what is in force stays. May be called from any thread.
void LoadConfiguration();

/// True once the settings could be read; until then each call tries it. What would be done by a setting that
/// nobody could read waits for it.
[[nodiscard]] bool ConfigurationIsKnown();

/// Changes settings. "Values": any of "EnableUpload" (bool), "EnableAggregation" (bool) and "AlertMinimumGap"
/// (integer, minutes); others are passed over. Each takes effect at once and is written to the file; one of
/// the wrong kind changes nothing, and the value in force is written; one that cannot be written is an error
/// line. Always answers 0. May be called from any thread.
uint32_t ActionHandler_EventLogManagerSetValues(LumContainer* container);

/// Reads the file again and answers the three settings in "Values": what could not be written there is
/// forgotten now. Always answers 0. May be called from any thread.
uint32_t ActionHandler_EventLogManagerGetValues(LumContainer* container);

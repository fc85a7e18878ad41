#pragma once

/// The names of the modules' files and directories that others look for: `<name>.ini` in the agent's
/// configuration directory, `<name>/` in its data directory.

inline constexpr char kEventLogManagerName[] = "EventLogManager";
inline constexpr char kMachineEventsName[] = "MachineEvents";

/// Definition files are dropped into this directory below EventLogManager's own.
inline constexpr char kModelsDirectoryName[] = "models";

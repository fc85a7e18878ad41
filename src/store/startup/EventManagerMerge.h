#pragma once

class DBConnection;

/// What the database says of the take-over of the older event module.
struct MergeFlag {
    bool recorded = false;  ///< there is a row
    bool done = false;      ///< it says that the module was taken over
};

/// Reads the flag; false, and `flag` untouched, where that fails.
[[nodiscard]] bool ReadMergeFlag(DBConnection& connection, MergeFlag& flag);

/// Takes over from the older, separate event module, once in the life of a database: retires that module,
/// records that it was done, and the version 10.0.0.0. Where the module could not be retired the next start
/// tries again. Called by ModuleInitialise, as its last step.
void Upgrade1000();

/// Takes the older module out of the agent's module list and deletes its ini file, its data directory and its
/// library. True where nothing of these three is left; the first that cannot be deleted ends it.
[[nodiscard]] bool RetireEventManagerModule();

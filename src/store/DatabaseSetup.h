#pragma once

#include <functional>
#include <string_view>

/// Configures DatabasePool for DatabasePath, runs the ini file's scripts and upgrades, and makes SQLite check
/// and compact the file, the compaction where there is room for it. Called by a start. Failures are told in
/// the log and stop nothing; the health of the agent follows how changes go from then on.
void InitializeDatabase();

/// Runs the ini file's scripts and upgrades alone, on a database that has taken the place of the one before.
void RunDatabaseScripts();

/// True where the scripts, the last time that they ran, did not come to their end because the disk or another
/// process stood in the way, or the ini file could not be read: they have to run again. A statement that is
/// wrong is left to the next start. May be called from any thread.
[[nodiscard]] bool AreDatabaseScriptsDue();

/// A watch of a statement that takes long at a start: says now and then how far it is (as in "checking the
/// database, 40 %"), and ends it once the agent is to stop.
[[nodiscard]] std::function<bool(uint32_t percent)> StartupWatch(std::string_view work);

#pragma once

/// Configures DatabasePool for DatabasePath, runs the ini file's scripts and upgrades, and makes SQLite check
/// and compact the file. Called once, by ModuleInitialise. Failures are told in the log and stop nothing.
void InitializeDatabase();

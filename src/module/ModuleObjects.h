#pragma once

#include <atomic>
#include <cstdint>

/// The module-wide objects. They live from the loading of the library to its unloading and are defined, in
/// the order in which they are made, in ModuleObjects.cpp. Each says itself which threads may use it.

class AlertGapTable_t;
class DBConnectionPool;
class LumDebug;
class LumMutex;
class LumString;
class PtrModelElementColl_t;
class PtrTaskQueue_t;
class TaskProcessorThread;
class TaskSchedulerThread;

extern LumDebug ModuleDebug;

/// Written by ModuleInitialise, before any other thread runs in the module, and only read from then on.
extern LumString IniFilePath;
extern LumString DataDirectory;
extern LumString DatabasePath;
extern LumString ModelsDirectory;

extern DBConnectionPool DatabasePool;
/// Taken around every statement on DatabasePool, before the connection is made. The first of the module's
/// locks: AlertGapMutex may be taken while it is held, never the other way round.
extern LumMutex DatabaseMutex;
/// Guards AlertGapTable.
extern LumMutex AlertGapMutex;
extern AlertGapTable_t AlertGapTable;

extern PtrModelElementColl_t ModelCollection;
extern PtrTaskQueue_t TaskQueue;
extern TaskSchedulerThread SchedulerThread;
extern TaskProcessorThread ProcessorThread;

/// The settings. Each stands for itself: a reader may see one of them new and another one old.
extern std::atomic<bool> UploadEnabled;
extern std::atomic<bool> AggregationEnabled;
/// In minutes.
extern std::atomic<int32_t> AlertMinimumGap;

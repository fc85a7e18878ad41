#include "alerts/AlertCeiling.h"
#include "alerts/AlertGapTable.h"
#include "events/EventAggregation.h"
#include "events/EventUpload.h"
#include "events/UploadBacklog.h"
#include "model/ModelElement.h"
#include "model/ModuleLog.h"
#include "sched/TaskProcessorThread.h"
#include "sched/TaskSchedulerThread.h"
#include "store/DatabaseScope.h"
#include "store/ModelRegistry.h"
#include "store/Paths.h"
#include "tasks/Task.h"

// Made from the top down when the library is loaded, destroyed from the bottom up when it is unloaded: the
// threads end before anything that they use goes, and the logger, which all others write to, comes first and
// goes last.

LumDebug ModuleDebug("EventLogManager", "Event Log Manager module (EventLogManagerModule)");
LumString IniFilePath;
LumString DataDirectory;
LumString DatabasePath;
LumString ModelsDirectory;
LumMutex RegistryMutex;
std::vector<UnloadedModel> UnloadedModels;
DBConnectionPool DatabasePool;
LumMutex DatabaseMutex;
LumMutex AlertGapMutex;
AlertGapTable_t AlertGapTable;
AlertCeiling_t AlertCeiling;
PtrModelElementColl_t ModelCollection;
PtrModelElementColl_t IncompleteModels;
PtrTaskQueue_t TaskQueue;
UploadBacklog_t UploadBacklog;
TaskSchedulerThread SchedulerThread;
TaskProcessorThread ProcessorThread;
std::atomic<bool> UploadEnabled{false};
std::atomic<bool> AggregationEnabled{false};
std::atomic<int32_t> AlertMinimumGap{0};

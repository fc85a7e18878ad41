#include "module/ModuleStatus.h"

#include <cstdint>
#include <memory>
#include <optional>

#include <sys/stat.h>

#include "alerts/Alerts.h"
#include "host/core/LumMetrics.h"
#include "model/Model.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/EventTable.h"
#include "store/Paths.h"
#include "tasks/Task.h"

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "ModuleStatus");

/// What can be read off the ends of the table's indexes, however many events there are.
struct EventSpan {
    int64_t count = 0;
    int64_t oldest = 0;
    int64_t newest = 0;
};

/// Events are only ever appended, and deleted from the oldest on: so the ids of a table have no gaps, and the
/// first and the last one tell how many there are. Where the clock was set back a deletion leaves gaps, which
/// count until the events around them are gone too.
EventSpan ReadSpan(DatabaseScope& scope, const LumString& modelName) {
    const LumString table = EventTable(modelName);
    LumString statement;
    statement.Printf(
        "SELECT (SELECT MAX(E_Id) FROM %S) - (SELECT MIN(E_Id) FROM %S) + 1, (SELECT MIN(E_Date) FROM %S), "
        "(SELECT MAX(E_Date) FROM %S)",
        table, table, table, table);
    EventSpan span;
    const GenSqlResult* const rows = scope.Connection().Query(statement, true);
    if (rows != nullptr && rows->GetRowCount() == 1) {
        static_cast<void>(rows->GetColumn(0, span.count) && rows->GetColumn(1, span.oldest) &&
                          rows->GetColumn(2, span.newest));  // an empty table has nothing but 0
    }
    return span;
}

void PutTime(LumContainer& status, const char* name, int64_t time) {
    if (time > 0) {
        LumStatusSetNumber(status, name, static_cast<uint64_t>(time));
    }
}

LumContainer DescribeModel(const Model_t& model) {
    EventSpan span;
    {
        DatabaseScope scope(kRoutine);
        if (scope.IsLocked()) {
            span = ReadSpan(scope, model.GetName());
        }
    }
    LumContainer description;
    description.SetString("name", model.GetName());
    description.SetBool("enabled", model.IsEnabled());
    LumStatusSetNumber(description, "events", static_cast<uint64_t>(span.count));
    PutTime(description, "oldest", span.oldest);
    PutTime(description, "newest", span.newest);
    PutTime(description, "lastAggregation", model.GetLastAggregationTime());
    PutTime(description, "lastUpload", model.GetLastUploadTime());
    return description;
}

uint64_t SizeOf(const LumString& path) {
    struct stat status = {};
    return ::stat(path.GetString(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

void FillStatus(LumContainer& status) {
    std::shared_ptr<Model_t> model;
    for (uint32_t i = 0; ModelCollection.GetAt(i, model); ++i) {
        status.SetContainer("models", DescribeModel(*model), i);
    }
    LumContainer sizes;
    LumStatusSetNumber(sizes, "database", SizeOf(DatabasePath));
    LumStatusSetNumber(sizes, "log", SizeOf(DatabasePath + "-wal"));
    status.SetContainer("sizes", std::move(sizes));
    LumStatusSetNumber(status, "queue", TaskQueue.GetCount());
    LumContainer alerts;
    LumStatusSetNumber(alerts, "sent", AlertsSent().Get());
    LumStatusSetNumber(alerts, "heldBack", AlertsHeldBack().Get());
    status.SetContainer("alerts", std::move(alerts));
}

void RefreshMetrics() {
    LumMetricsGauge("lum_queue_tasks", "Tasks that wait for the processor.").Set(TaskQueue.GetCount());
    LumMetricsGauge("lum_database_bytes", "Size of the database file.")
        .Set(static_cast<double>(SizeOf(DatabasePath)));
    LumMetricsGauge("lum_database_log_bytes", "Size of the write-ahead log of the database.")
        .Set(static_cast<double>(SizeOf(DatabasePath + "-wal")));
    static_cast<void>(AlertsSent());  // there from the first look on
    static_cast<void>(AlertsHeldBack());
}

struct Status {
    LumStatusProvider provider{LumString(), FillStatus};
    LumMetricsRefresh refresh{RefreshMetrics};
};

std::optional<Status> moduleStatus;

}  // namespace

void BeginModuleStatus() {
    moduleStatus.emplace();
}

void EndModuleStatus() {
    moduleStatus.reset();
}

#include "module/ModuleStatus.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

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

struct EventSpan {
    int64_t count = 0;
    int64_t oldest = 0;
    int64_t newest = 0;
};

/// Tells how many events the models have without a look at all of them. Events are appended, and as a rule
/// deleted from the oldest on, so the first and the last number of a table tell it, less the numbers between
/// them that no event has. Those are counted at the first look, and again after events have been deleted: a
/// clock that was set back, or somebody's hand, makes some. May be asked from any thread.
class EventSpans {
public:
    [[nodiscard]] EventSpan Read(const std::shared_ptr<Model_t>& model);

private:
    struct Gaps {
        std::weak_ptr<Model_t> model;  ///< whose table they were counted in
        uint64_t deleted = 0;          ///< the model's deletions before that
        int64_t count = 0;
    };

    std::mutex mutex_;
    std::map<std::string, Gaps> gaps_;
};

bool ReadEnds(DatabaseScope& scope, const LumString& table, EventSpan& span) {
    LumString statement;
    statement.Printf(
        "SELECT (SELECT MAX(E_Id) FROM %S) - (SELECT MIN(E_Id) FROM %S) + 1, (SELECT MIN(E_Date) FROM %S), "
        "(SELECT MAX(E_Date) FROM %S)",
        table, table, table, table);
    const GenSqlResult* const rows = scope.Connection().Query(statement, true);
    // An empty table has nothing but 0.
    return rows != nullptr && rows->GetRowCount() == 1 && rows->GetColumn(0, span.count) &&
           rows->GetColumn(1, span.oldest) && rows->GetColumn(2, span.newest);
}

int64_t CountRows(DatabaseScope& scope, const LumString& table, int64_t otherwise) {
    LumString statement;
    statement.Printf("SELECT COUNT (*) FROM %S", table);
    int64_t count = otherwise;
    const GenSqlResult* const rows = scope.Connection().Query(statement, true);
    return rows != nullptr && rows->GetColumn(0, count) ? count : otherwise;
}

EventSpan EventSpans::Read(const std::shared_ptr<Model_t>& model) {
    const LumString table = EventTable(model->GetName());
    const uint64_t deleted =
        model->Deleted().Get();  // a deletion that comes in between is seen by the next look
    EventSpan span;
    DatabaseScope scope(kRoutine);
    if (!scope.IsLocked() || !ReadEnds(scope, table, span)) {
        return span;
    }
    const std::lock_guard<std::mutex> guard(mutex_);
    Gaps& gaps = gaps_[std::string(model->GetName().View())];
    if (gaps.model.lock() != model || gaps.deleted != deleted) {
        gaps = {model, deleted, span.count - CountRows(scope, table, span.count)};
    }
    span.count = std::max<int64_t>(span.count - gaps.count, 0);
    return span;
}

void PutTime(LumContainer& status, const char* name, int64_t time) {
    if (time > 0) {
        LumStatusSetNumber(status, name, static_cast<uint64_t>(time));
    }
}

LumContainer DescribeModel(const Model_t& model, const EventSpan& span) {
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

void FillStatus(EventSpans& spans, LumContainer& status) {
    std::shared_ptr<Model_t> model;
    for (uint32_t i = 0; ModelCollection.GetAt(i, model); ++i) {
        status.SetContainer("models", DescribeModel(*model, spans.Read(model)), i);
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
    // Counters are there from the first look on: one that appears with its first event would hide that event
    // from whoever watches what is added.
    static_cast<void>(AlertsSent());
    static_cast<void>(AlertsHeldBack());
    std::shared_ptr<Model_t> model;
    for (uint32_t i = 0; ModelCollection.GetAt(i, model); ++i) {
        static_cast<void>(model->Stored());
        static_cast<void>(model->Deleted());
    }
}

struct Status {
    EventSpans spans;
    LumStatusProvider provider{LumString(), [this](LumContainer& status) { FillStatus(spans, status); }};
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

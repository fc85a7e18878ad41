#include "events/EventUpload.h"

#include <algorithm>
#include <string>

#include "contract/FileStore.h"
#include "events/TaskAction.h"
#include "events/UploadBacklog.h"
#include "events/UploadFiles.h"
#include "events/UploadLeftOvers.h"
#include "host/core/FileStoreAction.h"
#include "host/core/LumStartup.h"
#include "host/database/SqlText.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"
#include "model/ModelElement.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/EventTable.h"

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "UploadEvents");
/// How many events are read at once where an upload goes on.
constexpr uint32_t kRestEvents = 100 * kUploadFileEvents;
/// A container file that is larger cannot be read.
constexpr std::size_t kMaxFileBytes = std::size_t{64} << 20U;

/// How far sending has come.
enum class Sent : uint8_t { kAll, kStuck, kStopped };

LumString WindowCondition(EventWindow window) {
    LumString when;
    when.Printf("E_Date >= %ld AND E_Date < %ld", int64_t{window.start}, int64_t{window.end});
    return when;
}

/// What a task's window has become in the database.
struct Consumed {
    bool marked;         ///< the model's time is stored
    GenSqlResult* rows;  ///< the events that were read, if any were to be; null where something failed
    UploadExtent extent{0, INT64_MAX};
};

/// Stores that the window is done with and, with `reads`, reads its events. There is no transaction around
/// the two: what is stored stays.
Consumed ConsumeWindow(DatabaseScope& scope, const Model_t& model, EventWindow window, bool reads) {
    GenSqlResult* const updated = scope.Query(UpdateLastUpload(model.GetName(), window.end));
    if (updated == nullptr || !reads) {
        return {updated != nullptr, updated};
    }
    Consumed consumed{true, scope.Query(BuildUpload(model, window))};
    if (consumed.rows != nullptr && consumed.rows->GetRowCount() > 0) {
        consumed.extent.events = consumed.rows->GetRowCount();
        LumString newest;
        newest.Printf("SELECT MAX(E_Id) FROM %S;", EventTable(model.GetName()));
        if (const GenSqlResult* const found = scope.Query(newest)) {
            static_cast<void>(found->GetColumn(0, consumed.extent.lastId));  // there are rows
        }
    }
    return consumed;
}

void LogNothing(const Model_t& model) {
    kRoutine.Trace("Nothing to upload for model '%S'", model.GetName());
}

/// True where the file was handed over, or can never be.
bool HandOver(const Model_t& model, const LumContainer& file, uint32_t events, LumString& error) {
    LumString path;
    switch (FileStoreHandOver(file, kFileTypeEvents, kUploadFilePriority, path)) {
        case FileStoreOutcome::kDone:
            return true;
        case FileStoreOutcome::kNotTaken:
            FileDelete(path, true);  // it is made again
            error = "the file store did not take a file";
            return false;
        case FileStoreOutcome::kNotMade:
            break;
    }
    if (events == 1 && file.ToCbor().size() > kMaxFileBytes) {
        kRoutine.Error("An event of model '%S' is too large for a file and is left out", model.GetName());
        return true;
    }
    error = "a file could not be written";
    return false;
}

/// Hands over `rows`, which begin where the journal stands.
Sent SendRows(const Model_t& model, GenSqlResult& rows, UploadJournal& journal, LumString& error) {
    const UploadFiles files(model);
    LumContainer file;
    for (uint32_t sent = 0; sent < rows.GetRowCount();) {
        if (LumStopRequested()) {
            return Sent::kStopped;
        }
        const uint32_t events = files.Fill(rows, sent, file);
        if (!HandOver(model, file, events, error) || !journal.AddHandedOver(events, error)) {
            return Sent::kStuck;
        }
        sent += events;
    }
    return Sent::kAll;
}

/// Looks up how many events the first window has, where it was cut off before that was known.
bool Measure(const Model_t& model, UploadJournal& journal, LumString& error) {
    LumString statement;
    statement.Printf("SELECT COUNT(*), MAX(E_Id) FROM %S WHERE %S;", EventTable(model.GetName()),
                     WindowCondition(journal.GetFirst()));
    DatabaseScope scope(kRoutine);
    const GenSqlResult* const found = scope.IsLocked() ? scope.Query(statement) : nullptr;
    scope.Unlock();
    int64_t events = 0;
    int64_t lastId = 0;
    if (found == nullptr || !found->GetColumn(0, events) || !found->GetColumn(1, lastId)) {
        error = "its events cannot be read";
        return false;
    }
    return journal.SetExtent({static_cast<uint32_t>(events), lastId}, error);
}

/// Sends up to kRestEvents of the first window. An event that is not there any more is passed over.
Sent SendSome(const Model_t& model, UploadJournal& journal, LumString& error) {
    const uint32_t left = journal.GetExtent()->events - journal.GetHandedOver();
    DatabaseScope scope(kRoutine);
    GenSqlResult* const rows =
        scope.IsLocked() ? scope.Query(BuildUploadRest(model, journal.GetFirst(), *journal.GetExtent(),
                                                       journal.GetHandedOver(), std::min(left, kRestEvents)))
                         : nullptr;
    scope.Unlock();
    if (rows == nullptr) {
        error = "its events cannot be read";
        return Sent::kStuck;
    }
    if (rows->GetRowCount() == 0) {
        return journal.AddHandedOver(left, error) ? Sent::kAll : Sent::kStuck;
    }
    return SendRows(model, *rows, journal, error);
}

/// Sends what the journal holds, window by window.
Sent SendRest(const Model_t& model, UploadJournal& journal, LumString& error) {
    while (!journal.IsEmpty()) {
        if (!journal.GetExtent().has_value() && !Measure(model, journal, error)) {
            return Sent::kStuck;
        }
        while (journal.GetHandedOver() < journal.GetExtent()->events) {
            const Sent sent = SendSome(model, journal, error);
            if (sent != Sent::kAll) {
                return sent;
            }
        }
        if (!journal.FinishFirst(error)) {
            return Sent::kStuck;
        }
    }
    return Sent::kAll;
}

/// Sends the events that were just read, or, where older ones wait before them, those first.
Sent Send(const Model_t& model, const Consumed& consumed, UploadJournal& journal, LumString& error) {
    if (journal.GetWindows().size() > 1 || journal.GetExtent().has_value()) {
        return SendRest(model, journal, error);
    }
    if (consumed.extent.events > 0) {
        if (!journal.SetExtent(consumed.extent, error)) {
            return Sent::kStuck;
        }
        const Sent sent = SendRows(model, *consumed.rows, journal, error);
        if (sent != Sent::kAll) {
            return sent;
        }
    }
    return journal.FinishFirst(error) ? Sent::kAll : Sent::kStuck;
}

void SettleUpload(const Model_t& model, Sent sent, const LumString& error) {
    if (sent == Sent::kStopped) {
        kRoutine.Print("The upload of model '%S' stops and goes on after the next start", model.GetName());
    } else {
        UploadBacklog.Settle(model.GetName(), error);
    }
}

void SendAndSettle(const Model_t& model, const Consumed& consumed, UploadJournal& journal) {
    const bool isEmpty = consumed.extent.events == 0 && journal.GetWindows().size() == 1;
    LumString error;
    const Sent sent = Send(model, consumed, journal, error);
    if (isEmpty) {
        LogNothing(model);
    } else if (sent == Sent::kAll) {
        kRoutine.Trace("Events have been uploaded with success for model '%S'", model.GetName());
    }
    SettleUpload(model, sent, error);
}

/// Writes down what is about to be sent. Null, and the reason said, where that cannot be.
UploadJournal* OpenJournal(const Model_t& model, EventWindow window, bool sends) {
    const LumSeconds mark = model.GetLastUploadTime();
    LumString error;
    UploadJournal* const journal = UploadBacklog.Find(model.GetName(), error);
    if (journal != nullptr && journal->ForgetAfter(mark, error) &&
        (!sends || journal->Append(window, error))) {
        return journal;
    }
    if (journal == nullptr) {
        if (UploadBacklog.Postpone(model.GetName(), window.end)) {
            kRoutine.Error("The upload of model '%S' waits, its journal cannot be read: %S", model.GetName(),
                           error);
        }
    } else {
        UploadBacklog.Settle(model.GetName(), error);
    }
    return nullptr;
}

/// A statement failed. A window that is marked as sent already waits in the backlog.
void SettleFailure(const Model_t& model, EventWindow window, bool marked, UploadJournal& journal) {
    kRoutine.Error("Failed to upload events for model '%S', SQL error", model.GetName());
    if (marked) {
        UploadBacklog.Postpone(model.GetName(), window.end);
        LumString error;
        static_cast<void>(journal.ForgetAfter(window.start, error));  // Settle says it
        UploadBacklog.Settle(model.GetName(), error);
    }
}

bool IsSending(const Model_t& model) {
    return UploadEnabled.load(std::memory_order_relaxed) && model.IsEnabled();
}

/// True where the database says that it has no such model.
bool IsUnregistered(const LumString& model) {
    std::string quoted;
    LumAppendQuoted(quoted, model.View());
    LumString statement;
    statement.Printf("SELECT COUNT(*) FROM RegisteredModel WHERE RM_ModelName = %s;", quoted.c_str());
    DatabaseScope scope(kRoutine);
    const GenSqlResult* const found = scope.IsLocked() ? scope.Query(statement) : nullptr;
    int64_t count = 1;
    return found != nullptr && found->GetColumn(0, count) && count == 0;
}

/// The end up to which the model's upload has to begin anew, because it did not come as far as the mark.
std::optional<LumSeconds> UnmarkedEnd(const Model_t& model, const UploadJournal& journal) {
    if (!journal.IsEmpty() && journal.GetWindows().back().end > model.GetLastUploadTime()) {
        return journal.GetWindows().back().end;
    }
    return UploadBacklog.TakePostponed(model.GetName());
}

void ResumeUpload(const LumString& name) {
    std::shared_ptr<Model_t> model;
    if (!ModelCollection.Get(name, model)) {
        if (IsUnregistered(name)) {
            UploadBacklog.Abandon(name);
        }
        return;
    }
    LumString error;
    UploadJournal* const journal = UploadBacklog.Find(name, error);
    if (journal == nullptr || !IsSending(*model)) {
        return;
    }
    if (const std::optional<LumSeconds> end = UnmarkedEnd(*model, *journal)) {
        UploadEvents(model, 0, *end, false);
        return;
    }
    Sent sent = Sent::kStuck;
    if (!FileStoreIsThere()) {
        error = "there is no file store";
    } else if (journal->Store(error)) {
        sent = SendRest(*model, *journal, error);
    }
    SettleUpload(*model, sent, error);
}

}  // namespace

std::optional<EventWindow> UploadWindow(Policy policy, LumSeconds start, LumSeconds end, bool scheduled,
                                        LumSeconds last) {
    const EventWindow window{std::max(start, last), scheduled ? PeriodStart(policy, end) : end};
    return window.end > last ? std::optional(window) : std::nullopt;
}

LumString BuildUpload(const Model_t& model, EventWindow window) {
    LumString columns(kEventColumns);
    AppendParamColumns(columns, model);
    LumString statement;
    statement.Printf("SELECT %S FROM EVENT_%S WHERE %S;", columns, model.GetName(), WindowCondition(window));
    return statement;
}

LumString BuildUploadRest(const Model_t& model, EventWindow window, const UploadExtent& extent,
                          uint32_t first, uint32_t limit) {
    LumString rest;
    rest.Printf(" AND +E_Id <= %ld LIMIT %u OFFSET %u;", extent.lastId, limit, first);
    const LumString whole = BuildUpload(model, window);
    return whole.GetSubstring(0, whole.GetLength() - 1) + rest;
}

bool UploadEvents(const std::shared_ptr<Model_t>& model, LumSeconds start, LumSeconds end, bool scheduled) {
    kRoutine.Trace("Entering");
    if (model == nullptr) {
        return false;
    }
    const std::optional<EventWindow> window =
        UploadWindow(model->GetUploadPolicy(), start, end, scheduled, model->GetLastUploadTime());
    if (!window.has_value()) {
        LogNothing(*model);
        return true;
    }
    const bool uploadEnabled = UploadEnabled.load(std::memory_order_relaxed);
    const bool sends = uploadEnabled && model->IsEnabled();
    UploadJournal* const journal = OpenJournal(*model, *window, sends);
    if (journal == nullptr) {
        return false;
    }
    DatabaseScope scope(kRoutine);
    if (!scope.IsLocked()) {
        return false;
    }
    const Consumed consumed = ConsumeWindow(scope, *model, *window, sends);
    if (consumed.rows == nullptr) {
        scope.Unlock();
        SettleFailure(*model, *window, consumed.marked, *journal);
        return false;
    }
    model->SetLastUploadTime(window->end);
    scope.Unlock();

    if (sends) {
        SendAndSettle(*model, consumed, *journal);
    } else if (!uploadEnabled) {
        kRoutine.Trace("Upload is disabled, ignoring events for model '%S'", model->GetName());
    } else {
        kRoutine.Trace("Ignoring events for disabled model '%S'", model->GetName());
    }
    return true;
}

void ResumeUploads() {
    HandOverLeftOvers();
    UploadBacklog.ForEach([](const LumString& model) {
        if (!LumStopRequested()) {
            ResumeUpload(model);
        }
    });
}

uint32_t ActionHandler_EventLogManagerUploadEvents(LumContainer* container) {
    constexpr LumRoutine kActionRoutine(ModuleDebug, "ActionHandler_EventLogManagerUploadEvents");
    return QueueTaskAction(container, kActionRoutine,
                           [](const Model_t& model, const LumContainer& /*values*/) {
                               return MakeTask(TaskType::TaskUpload, model.GetName(),
                                               model.GetLastUploadTime(), LumNow(), false);
                           });
}

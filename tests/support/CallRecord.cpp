#include "support/CallRecord.h"

#include <functional>
#include <mutex>
#include <string_view>

#include <dlfcn.h>
#include <unistd.h>

#include "alerts/AlertGapTable.h"
#include "host/container/LumContainer.h"
#include "host/database/Database.h"
#include "host/log/LumDebug.h"
#include "host/thread/LumThread.h"
#include "sched/TaskProcessorThread.h"
#include "sched/TaskSchedulerThread.h"
#include "store/DatabaseScope.h"
#include "store/ModelRegistry.h"

namespace {

std::mutex guard;
bool isOpen = false;
std::vector<CallRecord::Entry> entries;

/// Asks for memory only while a record is open: other tests count what the module itself asks for.
void Note(std::string_view what, std::string_view of = {}, std::string_view how = {}) {
    const std::lock_guard<std::mutex> lock(guard);
    if (isOpen) {
        entries.push_back({std::string(what).append(of).append(how), DatabaseMutex.IsHeldByThisThread(),
                           AlertGapMutex.IsHeldByThisThread(), RegistryMutex.IsHeldByThisThread()});
    }
}

const char* NameOf(const LumThread* thread) {
    return thread == &SchedulerThread ? "scheduler" : thread == &ProcessorThread ? "processor" : "thread";
}

std::vector<std::string> Texts(const std::function<bool(const CallRecord::Entry&)>& fits) {
    const std::lock_guard<std::mutex> lock(guard);
    std::vector<std::string> texts;
    for (const CallRecord::Entry& entry : entries) {
        if (fits(entry)) {
            texts.push_back(entry.text);
        }
    }
    return texts;
}

/// The libraries' routine of that name.
template <class Routine>
Routine* Next(const char* name) {
    return reinterpret_cast<Routine*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

CallRecord::CallRecord() {
    const std::lock_guard<std::mutex> lock(guard);
    entries.clear();
    isOpen = true;
}

CallRecord::~CallRecord() {
    const std::lock_guard<std::mutex> lock(guard);
    isOpen = false;
}

std::vector<std::string> CallRecord::All(const std::string& begin) const {
    return Texts([&](const Entry& entry) { return entry.text.starts_with(begin); });
}

std::vector<std::string> CallRecord::UnderLock(const std::string& begin) const {
    return Texts([&](const Entry& entry) { return entry.underLock && entry.text.starts_with(begin); });
}

std::vector<std::string> CallRecord::WithoutLock(const std::string& begin) const {
    return Texts([&](const Entry& entry) { return !entry.underLock && entry.text.starts_with(begin); });
}

std::vector<std::string> CallRecord::UnderAlertLock(const std::string& begin) const {
    return Texts([&](const Entry& entry) { return entry.underAlertLock && entry.text.starts_with(begin); });
}

std::vector<std::string> CallRecord::UnderRegistryLock(const std::string& begin) const {
    return Texts(
        [&](const Entry& entry) { return entry.underRegistryLock && entry.text.starts_with(begin); });
}

GenSqlResult* DBConnection::Query(const LumString& sql, bool quiet) {
    static auto* const next =
        Next<GenSqlResult*(DBConnection*, const LumString&, bool)>("_ZN12DBConnection5QueryERK9LumStringb");
    Note("SQL ", sql.View());
    return next(this, sql, quiet);
}

GenSqlResult* DBConnection::QueryWatched(const LumString& sql, const std::function<bool(uint32_t)>& goesOn) {
    static auto* const next =
        Next<GenSqlResult*(DBConnection*, const LumString&, const std::function<bool(uint32_t)>&)>(
            "_ZN12DBConnection12QueryWatchedERK9LumStringRKSt8functionIFbjEE");
    Note("SQL ", sql.View());
    return next(this, sql, goesOn);
}

bool DBConnection::BeginTransaction() {
    static auto* const next = Next<bool(DBConnection*)>("_ZN12DBConnection16BeginTransactionEv");
    Note("SQL BEGIN");
    return next(this);
}

bool DBConnection::CommitTransaction() {
    static auto* const next = Next<bool(DBConnection*)>("_ZN12DBConnection17CommitTransactionEv");
    Note("SQL COMMIT");
    return next(this);
}

bool DBAwaitDurable() {
    static auto* const next = Next<bool()>("_Z14DBAwaitDurablev");
    Note("wait for the disk");
    return next();
}

void LumDebugContext::Write(LumLogLevel level, std::string_view logger, std::string_view text) {
    static auto* const next = Next<void(LumDebugContext*, LumLogLevel, std::string_view, std::string_view)>(
        "_ZN15LumDebugContext5WriteE11LumLogLevelSt17basic_string_viewIcSt11char_traitsIcEES4_");
    Note(LumLogLevelName(level), " ", text);
    next(this, level, logger, text);
}

bool LumContainer::SetInt32(const LumString& name, int32_t value, uint32_t index) {
    static auto* const next = Next<bool(LumContainer*, const LumString&, int32_t, uint32_t)>(
        "_ZN12LumContainer8SetInt32ERK9LumStringij");
    Note("put ", name.View());
    return next(this, name, value, index);
}

bool LumThread::Start(Routine routine, void* argument) {
    static auto* const next = Next<bool(LumThread*, Routine, void*)>("_ZN9LumThread5StartEPFjPvES0_");
    Note("start ", NameOf(this));
    return next(this, routine, argument);
}

bool LumThread::Cancel(uint32_t milliseconds, bool endPause) {
    static auto* const next = Next<bool(LumThread*, uint32_t, bool)>("_ZN9LumThread6CancelEjb");
    Note("cancel ", NameOf(this), " " + std::to_string(milliseconds) + (endPause ? " at once" : ""));
    return next(this, milliseconds, endPause);
}

bool LumThread::Pause(uint32_t milliseconds) {
    static auto* const next = Next<bool(LumThread*, uint32_t)>("_ZN9LumThread5PauseEj");
    Note("pause ", NameOf(this), " " + std::to_string(milliseconds));
    return next(this, milliseconds);
}

int fsync(int file) {
    static auto* const next = Next<int(int)>("fsync");
    Note("sync");
    return next(file);
}

int fdatasync(int file) {
    static auto* const next = Next<int(int)>("fdatasync");
    Note("sync");
    return next(file);
}

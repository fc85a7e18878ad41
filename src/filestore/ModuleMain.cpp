#include "filestore/ModuleMain.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "contract/FileStore.h"
#include "contract/Statuses.h"
#include "filestore/ForwarderState.h"
#include "filestore/Outbox.h"
#include "filestore/OutboxFigures.h"
#include "filestore/OutboxHealth.h"
#include "host/container/LumContainer.h"
#include "host/core/ActionDb.h"
#include "host/core/LumAgent.h"
#include "host/core/LumCaller.h"
#include "host/core/LumHealth.h"
#include "host/core/LumMetrics.h"
#include "host/core/ModuleInterface.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"
#include "host/time/LumTime.h"

namespace {

constexpr char kVersion[] = "1.0.0";
/// How large the outbox may become where the agent's settings do not say.
constexpr int32_t kDefaultMaxMegabytes = 1024;

LumDebug StoreDebug("FileStore", "File store module (FileStoreModule)");
Outbox StoreOutbox;
OutboxHealth StoreHealth(StoreOutbox);

/// Reads what is there; a field that is missing or of another kind stays as ReceivedFile has it.
ReceivedFile ReadRequest(const LumContainer& container) {
    ReceivedFile file;
    static_cast<void>(container.GetString(kFileStoreMovePath, file.movePath));
    static_cast<void>(container.GetString(kFileStoreFileType, file.fileType));
    static_cast<void>(container.GetString(kFileStoreFileLabel, file.fileLabel));
    static_cast<void>(container.GetString(kFileStoreFileName, file.fileName));
    static_cast<void>(container.GetString(kFileStoreFileChecksum, file.fileChecksum));
    static_cast<void>(container.GetBool(kFileStoreUpstream, file.upstream));
    int32_t priority = 0;
    if (container.GetInt32(kFileStorePriority, priority)) {
        file.priority = priority;
    }
    if (LumCallerCurrent() != nullptr) {
        file.confinedTo = GetTempDirectory();  // a client may not have any file of the agent's user moved
    }
    return file;
}

constexpr std::string_view kRoutine = "ActionHandler_FileStoreReceiveFile";

/// Says why a file was not taken, and, where that is the outbox's fault, that the agent is not well.
uint32_t Decline(const ReceivedFile& file, const Received& received) {
    StoreDebug.ErrorWithNL("%S: Failed to receive file, %S", kRoutine, received.problem);
    if (received.outcome == Received::Outcome::kRefused) {
        return kActionRefused;
    }
    StoreHealth.NoteFailure(file);
    return kActionFailed;
}

uint32_t ActionHandler_FileStoreReceiveFile(LumContainer* container) {
    StoreDebug.TraceWithNL("%S: Entering", kRoutine);
    if (container == nullptr) {
        return kActionRefused;
    }
    const ReceivedFile file = ReadRequest(*container);
    if (file.movePath.IsEmpty()) {
        StoreDebug.ErrorWithNL("%S: Failed to get the path of the file to move", kRoutine);
        return kActionRefused;
    }
    const Received received = StoreOutbox.Receive(file);
    if (received.outcome != Received::Outcome::kDone) {
        return Decline(file, received);
    }
    StoreHealth.NoteTaken();
    if (!received.problem.IsEmpty()) {
        StoreDebug.WarningWithNL("%S: %S", kRoutine, received.problem);
    }
    StoreDebug.TraceWithNL("%S: File '%S' has been received with success", kRoutine, received.path);
    container->Clear();
    return kActionDone;
}

/// One line for all files of a kind that were found, however many they are.
void WarnOfLeftOvers(const std::vector<std::string>& names, std::string_view kind, std::string_view what) {
    if (!names.empty()) {
        StoreDebug.WarningWithNL("%S: %S in the outbox: %u, the first is '%s'; %S",
                                 std::string_view("StoreInitialise"), kind,
                                 static_cast<uint32_t>(names.size()), names.front().c_str(), what);
    }
}

void StoreRegister(void* agentHandle) {
    StoreDebug.SetContext(LumAgentGetDebugContext(agentHandle));
    StoreDebug.TraceWithNL("Module Register starting");
    // A registration that is refused is told by the registry itself.
    ActionDbRegisterAction(kFileStoreSignature, ActionHandler_FileStoreReceiveFile, agentHandle);
}

void StoreInitialise() {
    constexpr std::string_view kStart = "StoreInitialise";
    StoreDebug.TraceWithNL("%S: Entering", kStart);
    LumString base;
    LumAgentGetDataDir(base);
    base += "FileStore";
    int32_t maxMegabytes = kDefaultMaxMegabytes;
    LumAgentIni()->GetEntryValue("Agent", "OutboxMaxMB", maxMegabytes, kDefaultMaxMegabytes);
    StoreOutbox.SetMaxBytes(static_cast<uint64_t>(std::max(maxMegabytes, 0)) << 20U);
    Outbox::LeftOvers leftOvers;
    LumString error;
    if (!StoreOutbox.Open(base + "/outbox", base + "/next-number", leftOvers, error)) {
        StoreDebug.ErrorWithNL("%S: Failed to open the outbox, %S", kStart, error);
        StoreHealth.NoteFailure({});
    }
    constexpr std::string_view kUndescribed = "Files without a description";
    WarnOfLeftOvers(leftOvers.completed, kUndescribed, "they were given one from their names");
    WarnOfLeftOvers(leftOvers.unknown, kUndescribed, "they were left as they are");
    WarnOfLeftOvers(leftOvers.orphans, "Descriptions without their file", "they were removed");
    for (const LumString& failure : leftOvers.errors) {
        StoreDebug.WarningWithNL("%S: %S", kStart, failure);
    }
}

/// A scraper and a person may ask at once; a large outbox is not looked through for each.
OutboxFigures RecentFigures() {
    constexpr std::chrono::seconds life(5);
    static std::mutex mutex;
    static OutboxFigures figures;
    static std::optional<std::chrono::steady_clock::time_point> read;
    const std::lock_guard<std::mutex> guard(mutex);
    const auto now = std::chrono::steady_clock::now();
    if (!read.has_value() || now - *read >= life) {
        figures = ReadOutboxFigures(StoreOutbox.GetDirectory());
        read = now;
    }
    return figures;
}

uint64_t AgeOf(const OutboxFigures& figures) {
    const std::time_t now = std::time(nullptr);
    return figures.oldest == 0 || figures.oldest > now ? 0 : static_cast<uint64_t>(now - figures.oldest);
}

/// What the store adds to /status, /metrics and /health.
struct StoreStatus {
    LumStatusProvider status{LumString(), [](LumContainer& all) {
                                 const OutboxFigures figures = RecentFigures();
                                 LumContainer outbox;
                                 LumStatusSetNumber(outbox, "files", figures.files);
                                 LumStatusSetNumber(outbox, "bytes", figures.bytes);
                                 LumStatusSetNumber(outbox, "oldestAge", AgeOf(figures));
                                 LumContainer forwarder;
                                 if (ReadForwarderState(StoreOutbox.GetDirectory(), forwarder)) {
                                     outbox.SetContainer("forwarder", std::move(forwarder));
                                 }
                                 all.SetContainer("outbox", std::move(outbox));
                             }};
    LumMetricsRefresh metrics{[] {
        const OutboxFigures figures = RecentFigures();
        LumMetricsGauge("lum_outbox_files", "Complete files that wait in the outbox.")
            .Set(static_cast<double>(figures.files));
        LumMetricsGauge("lum_outbox_bytes", "Size of all that lies in the outbox.")
            .Set(static_cast<double>(figures.bytes));
        LumMetricsGauge("lum_outbox_oldest_age_seconds", "Age of the oldest file in the outbox.")
            .Set(static_cast<double>(AgeOf(figures)));
    }};
    LumHealthCheck health{[] { return StoreHealth.Check(); }};
};

std::optional<StoreStatus> storeStatus;

}  // namespace

uint32_t ModuleMain(uint32_t command, uint32_t /*word*/, void* pointer) {
    switch (static_cast<LumModuleCommand>(command)) {
        case LumModuleCommand::kRegister:
            StoreRegister(pointer);
            return kLumModuleDone;
        case LumModuleCommand::kUnregister:
            StoreDebug.TraceWithNL("Module Unregister starting");
            return kLumModuleDone;
        case LumModuleCommand::kInitialise:
            StoreInitialise();
            return kLumModuleDone;
        case LumModuleCommand::kActivate:
            storeStatus.emplace();
            return kLumModuleDone;
        case LumModuleCommand::kAcknowledged:
            return kLumModuleDone;
        case LumModuleCommand::kCleanup:
            storeStatus.reset();
            StoreOutbox.Close();
            return kLumModuleDone;
        case LumModuleCommand::kGetDescription:
            LumModuleAnswer(StoreDebug.GetDescription(), pointer);
            return kLumModuleDone;
        case LumModuleCommand::kGetVersion:
            LumModuleAnswer(LumString(kVersion), pointer);
            return kLumModuleDone;
    }
    return kLumModuleUnknownCommand;
}

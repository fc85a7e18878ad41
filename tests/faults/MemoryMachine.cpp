#include "MemoryMachine.h"

#include <chrono>
#include <future>
#include <memory>
#include <new>
#include <thread>

#include "BuildPaths.h"
#include "alerts/AlertGapTable.h"
#include "contract/ContainerKeys.h"
#include "events/UploadBacklog.h"
#include "host/core/ActionDb.h"
#include "host/core/LumAgent.h"
#include "host/file/LumFile.h"
#include "model/Model.h"
#include "sched/TaskProcessorThread.h"
#include "store/DatabaseScope.h"
#include "store/ModelRegistry.h"
#include "store/Paths.h"
#include "support/MemoryFault.h"

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds kPatience(10);

std::string StateInMemory() {
    std::string state;
    std::shared_ptr<Model_t> model;
    for (uint32_t i = 0; ModelCollection.GetAt(i, model); ++i) {
        state += std::string(model->GetName().View()) + "|" + model->GetChecksum().GetString() + "|" +
                 (model->IsEnabled() ? "1" : "0") + "|" + std::to_string(model->GetLastAggregationTime()) +
                 "|" + std::to_string(model->GetLastUploadTime()) + "\n";
    }
    return state;
}

std::string StateInDatabase(const TestAgent& agent) {
    const std::string rows = agent.Rows(
        "SELECT RM_ModelName, RM_Checksum, RM_Enabled, RM_LastAggregationTimestamp, RM_LastUploadTimestamp "
        "FROM RegisteredModel ORDER BY RM_ModelName");
    return rows.empty() ? rows : rows + "\n";
}

}  // namespace

uint32_t Received::Take(const LumContainer& content) {
    if (!content.Contains(keys::kModelDef)) {
        ++alerts_;
        return 0;
    }
    for (uint32_t i = 0; i < content.CountPositions("User"); ++i) {
        const LumString* const user = content.FindString("User", i);
        Require(user != nullptr, "a sent event has no user");
        users_.insert(user->GetString());
    }
    return 0;
}

Machine::Machine(const fs::path& directory)
    : store_([this](const LumContainer& /*request*/, const LumContainer& content) {
          return received_.Take(content);
      }),
      module_(directory) {}

void PrepareMachine(const fs::path& place) {
    fs::create_directories(place / "config");
    fs::create_directories(place / "data/EventLogManager/models");
    fs::copy_file(LUM_SOURCE_DIR "/etc/EventLogManager.ini", place / "config/EventLogManager.ini");
    const ModelText logon{.name = "Logon",
                          .upload = Policy::kDaily,
                          .deletion = Policy::kWeekly,
                          .params = {{.name = "Share", .type = ParamType::kDouble, .defaultText = "1"},
                                     {.name = "Times", .type = ParamType::kInteger, .defaultText = "1"},
                                     {.name = "User"}}};
    const ModelText sums{.name = "Sums",
                         .type = ModelType::kAutomatic,
                         .source = "Logon",
                         .aggregation = Policy::kHourly,
                         .params = {{.name = "Times",
                                     .type = ParamType::kInteger,
                                     .source = "Times",
                                     .operation = AggregationOperation::kSum}}};
    const Machine machine(place);
    machine.Module().Drop(logon);
    machine.Module().Drop(sums);
    LinkedModule::Initialise();
    machine.Module().Database().Run(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
        std::to_string(kOldEvents) +
        ") INSERT INTO Event_Logon SELECT NULL, i, 0, 0, 0, 0.5, 1, 'old' || i FROM n");
    LinkedModule::CleanUp();
}

bool Without(uint64_t turn, const std::function<void()>& work) {
    try {
        const MemoryFault fault(turn);
        work();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

TestAgent::Answer CallWithout(uint64_t turn, const char* action, std::string_view arguments) {
    LumContainer container;
    LumString error;
    Require(container.FromJson(arguments, error), error.GetString());
    const LumString name(action);
    TestAgent::Answer answer{};
    bool called = false;
    Require(Without(turn, [&] { called = ActionDbCallAction(name, container, answer.status); }),
            "an exception left the action");
    Require(called, "no such action");
    answer.container = container.ToJson();
    return answer;
}

void Call(const char* action, std::string_view arguments) {
    Require(TestAgent::Call(action, arguments).status == 0, action);
}

void CheckLocks() {
    const auto taken = std::make_shared<std::promise<void>>();
    std::future<void> done = taken->get_future();
    std::thread([taken]() LUM_NO_THREAD_SAFETY_ANALYSIS {
        for (LumMutex* const mutex : {&RegistryMutex, &DatabaseMutex, &AlertGapMutex}) {
            if (mutex->Lock()) {
                mutex->Unlock();
            }
        }
        static_cast<void>(LumAgentGetIniAndLock());
        LumAgentReleaseIni();
        taken->set_value();
    }).detach();
    Require(done.wait_for(kPatience) == std::future_status::ready, "a lock is kept");
}

void CheckRegistry(const TestAgent& agent) {
    const std::string memory = StateInMemory();
    const std::string database = StateInDatabase(agent);
    Require(memory == database, "memory has\n" + memory + "the database has\n" + database);
    std::shared_ptr<Model_t> model;
    std::size_t tables = 0;
    for (uint32_t i = 0; ModelCollection.GetAt(i, model); ++i, ++tables) {
        const LumString filed = FiledDirectory(model->GetName(), model->GetChecksum());
        Require(DirExists(filed) && !fs::is_empty(filed.GetString()), "a definition is not filed");
    }
    const std::string counted = agent.Rows(
        "SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name LIKE 'Event~_%' ESCAPE '~'");
    Require(counted == std::to_string(tables), "there are " + counted + " tables of events");
    Require(agent.Rows("PRAGMA integrity_check") == "ok", "the database is damaged");
}

void CheckUploads(const Machine& machine, int created) {
    for (int i = 0; i < 2; ++i) {
        ProcessorThread.RunCycle();
    }
    TaskQueue.Push(MakeTask(TaskType::TaskUpload, "Logon", 0, LumNow() + 1, false));
    ProcessorThread.RunCycle();
    Require(UploadBacklog.GetOutstanding().empty(), "an upload is outstanding");
    const std::set<std::string>& users = machine.Sent().Users();
    for (int i = 1; i <= kOldEvents; ++i) {
        Require(users.contains("old" + std::to_string(i)), "old" + std::to_string(i) + " was never sent");
    }
    for (int i = 0; i < created; ++i) {
        Require(users.contains("new" + std::to_string(i)), "new" + std::to_string(i) + " was never sent");
    }
}

void CheckActions() {
    for (const char* const action : {"EventLogManagerGetModelNames", "EventLogManagerGetValues"}) {
        Require(TestAgent::Call(action, "").status == 0, std::string(action) + " fails afterwards");
    }
    Require(TestAgent::Create("Logon", R"({"User":"last"})") == 0, "an event is refused afterwards");
    Require(TestAgent::Query(R"({"ModelName":"Logon"})").status == 0, "a query is refused afterwards");
}

#include "SweepScenes.h"

#include <algorithm>
#include <fstream>
#include <vector>

#include "BuildPaths.h"
#include "events/UploadBacklog.h"
#include "host/time/LumTime.h"
#include "module/Configuration.h"
#include "sched/TaskProcessorThread.h"
#include "store/startup/StoreStartup.h"
#include "support/ModelText.h"
#include "support/ModulePair.h"
#include "support/Sqlite.h"

namespace {

namespace fs = std::filesystem;

constexpr LumSeconds kOldEnd = 2000;
constexpr int kVisits = 300;  // one a minute
constexpr LumSeconds kVisitsEnd = 86400;

/// Every model that is there in the end.
const std::vector<ModelText>& Models() {
    static const std::vector<ModelText> models = {
        {.name = "Logon", .params = {{.name = "User"}}},
        {.name = "Visit", .params = {{.name = "Seconds", .type = ParamType::kInteger}}},
        {.name = "VisitsByHour",
         .type = ModelType::kAutomatic,
         .source = "Visit",
         .aggregation = Policy::kHourly,
         .params = {{.name = "Visits",
                     .type = ParamType::kInteger,
                     .source = "Seconds",
                     .operation = AggregationOperation::kCount}}},
        {.name = "Doomed", .params = {{.name = "User"}}},
        {.name = "Late", .params = {{.name = "User"}}}};
    return models;
}

fs::path DroppedPath(const fs::path& place, const std::string& model) {
    return place / TestAgent::kModels / (model + ".xml");
}

fs::path OutboxOf(const fs::path& place) {
    return place / "data/FileStore/outbox";
}

void Aggregate() {
    TaskQueue.Push(MakeTask(TaskType::TaskAggregate, "VisitsByHour", 0, kVisitsEnd, true));
    ModulePair::RunCycle();
}

uint32_t Delete(const std::string& model) {
    return TestAgent::CallWith("EventLogManagerDeleteModels", R"({"ModelName":[")" + model + "\"]}");
}

uint32_t Reload() {
    return TestAgent::Call("EventLogManagerReloadModels", "").status;
}

std::string ModelNames() {
    return TestAgent::Call("EventLogManagerGetModelNames", R"({"Values":{}})").container;
}

bool IsListed(const std::string& model) {
    return ModelNames().find('"' + model + '"') != std::string::npos;
}

void CreateTwo(Account& account) {
    for (int i = 0; i < 2; ++i) {
        if (ModulePair::Create("Logon", "new" + std::to_string(account.created))) {
            ++account.created;
        }
    }
}

void WorkOfADay(Account& account) {
    CreateTwo(account);
    ModulePair::UploadAndPurge("Logon", kOldEnd);
    static_cast<void>(ModulePair::Alert("disturbed"));
    TestAgent::CallWith("EventLogManagerSetValues", R"({"AlertMinimumGap":30})");
}

/// After a start: what its threads do first.
void WorkOfAStart(Account& account) {
    ProcessorThread.SetReady(ConfigurationIsKnown);
    static_cast<void>(KeepStoreUp());
    ModulePair::RunCycle();
    CreateTwo(account);
}

void WorkOfAReload(Account& account) {
    static_cast<void>(Reload());
    CreateTwo(account);
}

void WorkOfADeletion(Account& account) {
    static_cast<void>(Delete("Doomed"));
    CreateTwo(account);
}

void WorkOfAnAggregation(Account& account) {
    Aggregate();
    CreateTwo(account);
}

/// Leaves an upload behind that goes on with the next start.
void CutAnUploadOff(const fs::path& place) {
    fs::rename(OutboxOf(place), OutboxOf(place) += ".away");
    std::ofstream(OutboxOf(place)) << "in the way";
    const ModulePair modules(place);
    ModulePair::UploadAndPurge("Logon", kOldEnd);
    Require(!UploadBacklog.GetOutstanding().empty(), "the upload is not cut off");
    fs::remove(OutboxOf(place));
    fs::rename(OutboxOf(place) += ".away", OutboxOf(place));
}

/// The registry is whole: the models that should be there are, and take events.
void RequireModels(const fs::path& place) {
    for (const ModelText& model : Models()) {
        Require(IsListed(model.name), "the model " + model.name + " is dead");
        Require(!fs::exists(DroppedPath(place, model.name)), model.name + " is not taken in");
    }
    Require(ModulePair::Create("Late", "late") && ModulePair::Create("Doomed", "anew"),
            "an event of a new model is refused");
    for (const char* const action : {"EventLogManagerDisableModel", "EventLogManagerEnableModel"}) {
        Require(TestAgent::CallWith(action, R"({"ModelName":"Late"})") == 0, "a model is not switched");
    }
}

/// Nothing is left half done in the database.
void RequireDatabase(const fs::path& place) {
    const Sqlite database(place / TestAgent::kDatabase);
    Require(database.Rows("SELECT count(*) FROM Scheduler") == "1", "the scheduler has no row");
    Require(database.Rows("SELECT count(*) FROM DatabaseInformation WHERE FieldName LIKE 'Database%'") == "4",
            "the version is not whole");
    Require(database.Rows("SELECT count(*) FROM RegisteredModel") == std::to_string(Models().size()),
            "rows and models differ");
    const std::string visits = database.Rows("SELECT count(*) FROM Event_Visit");
    Require(database.Rows("SELECT ifnull(sum(C_Visits), 0) FROM Event_VisitsByHour") == visits,
            "visits are missing in their sums, or counted twice");
}

}  // namespace

const Scene kScenes[] = {
    {"day", false, false, nullptr, {}, WorkOfADay},
    {"start", false, true, CutAnUploadOff, {"Late"}, WorkOfAStart},
    {"first-start", true, true, nullptr, {"Logon", "Visit", "VisitsByHour", "Doomed"}, WorkOfAStart},
    {"reload", false, false, nullptr, {"Logon", "Late"}, WorkOfAReload},
    {"delete", false, false, nullptr, {}, WorkOfADeletion},
    {"aggregation", false, false, nullptr, {}, WorkOfAnAggregation},
    {nullptr, false, false, nullptr, {}, nullptr}};

void Recover(const fs::path& place, Account& account) {
    ProcessorThread.SetReady(ConfigurationIsKnown);
    Require(KeepStoreUp(), "the store does not come up");
    ModulePair::RunCycle();
    Aggregate();
    Require(Reload() == 0, "a reload is refused");
    Require(!IsListed("Doomed") || Delete("Doomed") == 0, "a deletion is refused");
    Require(!IsListed("Doomed"), "a model is not deleted");
    DropDefinition(place, "Doomed");
    if (!IsListed("Late")) {
        DropDefinition(place, "Late");
    }
    Require(Reload() == 0, "a reload is refused");
    RequireModels(place);
    ModulePair::UploadAndPurge("Logon", kOldEnd);
    ModulePair::UploadAndPurge("Logon", LumNow() + 1);
    Require(UploadBacklog.GetOutstanding().empty(), "something is outstanding");
    Require(ModulePair::Create("Logon", "last"), "an event is refused");
    Require(ModulePair::Alert("recovered"), "an alert is refused");
    Require(TestAgent::CallWith("EventLogManagerSetValues", R"({"AlertMinimumGap":31})") == 0,
            "settings are refused");
    Require(TestAgent::Call("EventLogManagerGetValues", "").container.find(":31") != std::string::npos,
            "settings are not kept");
    RequireDatabase(place);
    account.recovered = true;
}

void DropDefinition(const fs::path& place, const std::string& model) {
    const auto found = std::find_if(Models().begin(), Models().end(),
                                    [&model](const ModelText& text) { return text.name == model; });
    std::ofstream(DroppedPath(place, model)) << Definition(*found);
}

void PrepareMachine(const Scene& scene, const fs::path& place) {
    fs::create_directories(place / "config");
    fs::create_directories(place / TestAgent::kModels);
    fs::copy_file(LUM_SOURCE_DIR "/etc/EventLogManager.ini", place / TestAgent::kIni);
    if (scene.isFirstStart) {
        return;
    }
    for (const char* const model : {"Logon", "Visit", "VisitsByHour", "Doomed"}) {
        DropDefinition(place, model);
    }
    const ModulePair modules(place);
    const auto fill = [](int count, const std::string& into) {
        return "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
               std::to_string(count) + ") INSERT INTO " + into + " FROM n;";
    };
    Sqlite(place / TestAgent::kDatabase)
        .Run(fill(kOldEvents, "Event_Logon SELECT NULL, i, 0, 0, 0, 'old' || i") +
             fill(kVisits, "Event_Visit SELECT NULL, i * 60, 0, 0, 0, i"));
}

#include "simulation/World.h"

#include <optional>
#include <utility>

#include "host/core/LumAgent.h"
#include "host/time/LumTime.h"
#include "sched/TaskProcessorThread.h"
#include "sched/TaskSchedulerThread.h"
#include "simulation/HistoryModels.h"

namespace {

using nlohmann::json;

const std::array<const char*, 6> kModelNames = {"Logon", "Minute", "ByHour", "ByMonth", "Orphan", "Nobody"};

template <class Container>
const auto& Pick(const Container& from, uint32_t number) {
    return from[number % std::size(from)];
}

const char* Name(const Step& step) {
    return Pick(kModelNames, step.numbers[0]);
}

template <class Value>
void Same(const Value& is, const Value& expected, const std::string& what) {
    Require(is == expected, what + ": " + json(is).dump() + " instead of " + json(expected).dump());
}

std::string CellOf(const json& value) {
    return value.is_null() ? "NULL" : value.is_string() ? value.get<std::string>() : value.dump();
}

/// The events of an answer, or of an upload file, as rows.
std::multiset<std::string> RowsOf(const json& content, const ModelText& model) {
    std::multiset<std::string> rows;
    const auto at = [&content](const std::string& name, std::size_t i) {
        return content.contains(name) ? CellOf(content[name][i]) : "0";
    };
    for (std::size_t i = 0; content.contains("EventDate") && i < content["EventDate"].size(); ++i) {
        std::string row = at("EventDate", i) + "|" + at("EventDeviceId", i) + "|" + at("EventGroupId", i);
        for (const ParamText& param : InOrder(model)) {
            row += "|" + at(param.name, i);
        }
        rows.insert(row);
    }
    return rows;
}

std::string StateText(const std::string& name, const Reference::State& state) {
    return name + "|" + (state.enabled ? "1" : "0") + "|" + std::to_string(state.lastAggregation) + "|" +
           std::to_string(state.lastUpload);
}

std::vector<std::string> InMemory() {
    std::vector<std::string> states;
    std::shared_ptr<Model_t> model;
    for (uint32_t i = 0; ModelCollection.GetAt(i, model); ++i) {
        states.push_back(
            StateText(model->GetName().GetString(),
                      {model->IsEnabled(), model->GetLastAggregationTime(), model->GetLastUploadTime()}));
    }
    return states;
}

void CompareTable(const Sqlite& database, const std::string& name, const Reference::Model& model) {
    std::string columns = "E_Date || '|' || E_DeviceId || '|' || E_GroupId";
    for (const ParamText& param : InOrder(model.text)) {
        columns += " || '|' || ifnull(C_" + param.name + ", 'NULL')";
    }
    std::multiset<std::string> expected;
    for (const ReferenceEvent& event : model.events) {
        expected.insert(event.Row());
    }
    const std::vector<std::string> found = database.Column("SELECT " + columns + " FROM Event_" + name);
    Same(std::multiset<std::string>(found.begin(), found.end()), expected, "Event_" + name);
}

}  // namespace

World::World(const std::filesystem::path& place, bool isLive)
    : place_(place), isLive_(isLive), reference_(clockShows) {
    Begin();
}

void World::Do(const Step& step) {
    clockShows = clockShows + step.numbers[5] % 3;
    reference_.SetClock(clockShows);
    switch (step.kind) {
        case Step::Kind::kCreate:
            Create(step.numbers);
            break;
        case Step::Kind::kQuery:
            Query(step.numbers);
            break;
        case Step::Kind::kSwitch:
            Switch(step.numbers);
            break;
        case Step::Kind::kDelete:
            Delete(step.numbers);
            break;
        case Step::Kind::kUpload:
            Act("UploadEvents", {{"ModelName", Name(step)}}, reference_.AskForUpload(Name(step)));
            break;
        case Step::Kind::kPurge:
            Purge(step.numbers);
            break;
        case Step::Kind::kGap:
            CheckGap(step.numbers);
            break;
        case Step::Kind::kSettings:
            Set(step.numbers);
            break;
        case Step::Kind::kDrop:
            Drop(step.numbers);
            break;
        case Step::Kind::kReload:
            Act("ReloadModels", json::object(), 0);
            reference_.Reload();
            break;
        case Step::Kind::kClock:
            Jump(step.numbers);
            break;
        case Step::Kind::kScheduler:
            if (isLive_) {
                SchedulerThread.RunCycle(clockShows);
            }
            reference_.RunScheduler();
            break;
        case Step::Kind::kProcessor:
            if (isLive_) {
                ProcessorThread.RunCycle();
            }
            reference_.RunProcessor();
            break;
        case Step::Kind::kRestart:
        case Step::Kind::kKill:
            module_.reset();
            Begin();
            break;
        case Step::Kind::kCount:
            break;
    }
    Compare();
}

/// What the agent does with the module at its start, as far as it has to do with rules.
void World::Begin() {
    if (isLive_) {
        if (!place_.Has(TestAgent::kIni)) {
            place_.Write(TestAgent::kIni, Shipped("EventLogManager.ini"));
            place_.MakeDirectory(TestAgent::kModels);
        }
        module_ = std::make_unique<LinkedModule>(place_.Path());
        LumAgentGetDebugContext(nullptr)->SetLevel(LumLogLevel::kError);
        LinkedModule::Initialise();
        LinkedModule::KeepErrorsFromAlerts();
        SchedulerThread.Initialise();
    }
    reference_.Restart();
}

void World::Act(const std::string& action, const json& values, uint32_t expected) const {
    if (isLive_) {
        Same(TestAgent::CallWith("EventLogManager" + action, values.dump()), expected, "status");
    }
}

void World::Create(const Numbers& numbers) {
    ReferenceCreate create{Pick(kModelNames, numbers[0]), {}, {}, {}};
    json params = json::object();
    if (numbers[1] % 4 != 0) {
        create.device = static_cast<int32_t>(numbers[1] % 3) - 1;
        params["EventDeviceId"] = *create.device;
    }
    if (numbers[2] % 2 != 0) {
        create.group = static_cast<int32_t>(numbers[2] % 5);
        params["EventGroupId"] = *create.group;
    }
    if (numbers[3] % 8 != 0) {
        create.values["User"] = Pick(std::array{"ann", "O'Brien", "", "日本 100%"}, numbers[3] / 8);
        params["User"] = create.values["User"];
    }
    if (numbers[4] % 3 != 0) {
        // A sum has to fit into the 32 bits that an integer has in an answer.
        const int32_t count = static_cast<int32_t>(numbers[4] % 200001) - 100000;
        create.values["Count"] = std::to_string(count);
        params["Count"] = count;
    }
    for (const char* const name : {"Extra", "Name"}) {
        create.values[name] = "x";
        params[name] = "x";
    }
    for (const char* const name : {"Events", "Total", "Top"}) {
        create.values[name] = "3";
        params[name] = 3;
    }
    // Many at once, so that an upload has more than one file.
    const uint32_t times = numbers[5] % 16 == 0 ? 60 : 1;
    for (uint32_t i = 0; i < times; ++i) {
        Act("CreateEvent", {{"ModelName", create.model}, {"EventParams", params}}, reference_.Create(create));
    }
}

void World::Query(const Numbers& numbers) const {
    const std::string model = Pick(kModelNames, numbers[0]);
    ReferenceQuery query;
    json values = {{"ModelName", model}};
    if (numbers[1] % 3 == 1) {
        query.start = static_cast<int32_t>(clockShows - numbers[2] % 5000);
        values["StartDate"] = *query.start;
    }
    if (numbers[2] % 3 == 1) {
        query.end = static_cast<int32_t>(clockShows - numbers[1] % 5000);
        values["EndDate"] = *query.end;
    }
    if (numbers[3] % 2 == 1) {
        query.pageSize = static_cast<int32_t>(numbers[3] % 17) - 1;
        query.pageNumber = static_cast<int32_t>(numbers[4] % 7) - 1;
        values["PageSize"] = query.pageSize;
        values["PageNumber"] = query.pageNumber;
    }
    query.sortColumn = Pick(std::array{"", "EventDate", "EventDeviceId", "NoSuch"}, numbers[4] / 7);
    query.direction = Pick(std::array{"", "Asc", "Desc", "desc"}, numbers[4] / 29);
    if (!query.sortColumn.empty()) {
        values["SortColumn"] = query.sortColumn;
    }
    if (!query.direction.empty()) {
        values["SortDirection"] = query.direction;
    }
    std::vector<ReferenceEvent> expected;
    const uint32_t status = reference_.Query(model, query, expected);
    if (!isLive_) {
        return;
    }
    const TestAgent::Answer answer = TestAgent::Query(values.dump());
    Same(answer.status, status, "status");
    if (status == 0) {
        CompareAnswer(json::parse(answer.container)["Result"], model, query, expected);
    }
}

void World::CompareAnswer(const json& result, const std::string& model, const ReferenceQuery& query,
                          const std::vector<ReferenceEvent>& expected) const {
    const auto& all = reference_.Models().at(model);
    Same(result["EventCount"].get<std::size_t>(), all.events.size(), "count");
    const auto column = [&result](const char* name) {
        return result.contains(name) ? result[name] : json::array();
    };
    std::vector<int64_t> dates;
    std::vector<int32_t> devices;
    std::multiset<std::string> rows;
    for (const ReferenceEvent& event : expected) {
        dates.push_back(event.date);
        devices.push_back(event.device);
        rows.insert(event.Row());
    }
    Require(column("EventDate").size() == expected.size(), "rows of an answer");
    if (query.sortColumn == "EventDeviceId") {
        Same(column("EventDeviceId"), json(devices), "order");
    } else if (query.sortColumn != "NoSuch") {
        Same(column("EventDate"), json(dates), "order");
    }
    if (query.pageSize <= 0) {
        Same(RowsOf(result, all.text), rows, "rows of an answer");
    }
}

void World::Switch(const Numbers& numbers) {
    const std::string model = Pick(kModelNames, numbers[0]);
    const bool on = numbers[1] % 2 == 0;
    Act(on ? "EnableModel" : "DisableModel", {{"ModelName", model}}, reference_.Switch(model, on));
}

void World::Delete(const Numbers& numbers) {
    const std::string one = Pick(kModelNames, numbers[0]);
    const std::string other = Pick(kModelNames, numbers[1]);
    Act("DeleteModels", {{"ModelName", {one, other}}}, 0);
    reference_.Delete(one);
    reference_.Delete(other);
}

void World::Purge(const Numbers& numbers) {
    const std::string model = Pick(kModelNames, numbers[0]);
    json values = {{"ModelName", model}};
    std::optional<int32_t> end;
    if (numbers[1] % 3 != 0) {
        end = static_cast<int32_t>(clockShows - numbers[2] % 4000);
        values["EndDate"] = *end;
    }
    Act("DeleteEvents", values, reference_.AskForPurge(model, end));
}

void World::CheckGap(const Numbers& numbers) {
    const std::string description = numbers[0] % 2 == 0 ? "one" : "two";
    const auto object = static_cast<int32_t>(numbers[1] % 2);
    const auto time = static_cast<uint32_t>(clockShows);
    const json arguments = {
        {"Description", description}, {"Status", "s"}, {"ObjectId", object}, {"EventTimeGMT", time}};
    const uint32_t expected = reference_.CheckGap(description + "-s", object, time);
    if (isLive_) {
        Same(TestAgent::Call("EventLogManagerCheckAlertMinimumGap", arguments.dump()).status, expected,
             "status");
    }
}

void World::Set(const Numbers& numbers) {
    json values = json::object();
    if (numbers[0] % 2 == 0) {
        values["EnableUpload"] = numbers[1] % 3 != 0;
        reference_.SetUploads(numbers[1] % 3 != 0);
    }
    if (numbers[0] % 3 == 0) {
        values["EnableAggregation"] = numbers[2] % 3 != 0;
        reference_.SetAggregation(numbers[2] % 3 != 0);
    }
    if (numbers[0] % 5 == 0) {
        values["AlertMinimumGap"] = numbers[3] % 100;
        reference_.SetGap(numbers[3] % 100);
    }
    Act("SetValues", values, 0);
}

/// Of two definitions with one name only one lies there at a time: which of two is taken first is open.
void World::Drop(const Numbers& numbers) {
    const ModelText& model = Pick(HistoryModels(), numbers[0]);
    for (const auto& [file, dropped] : reference_.Dropped()) {
        if (dropped.name == model.name) {
            return;
        }
    }
    const std::string file = "file" + std::to_string(numbers[0] % HistoryModels().size()) + ".xml";
    if (isLive_) {
        module_->Drop(file, Definition(model));
    }
    reference_.Drop(file, model);
}

void World::Jump(const Numbers& numbers) {
    constexpr std::array<int64_t, 12> kJumps = {1,    20,    20,     60,         60,   600,
                                                3600, 86400, 604800, 40 * 86400, -300, -7200};
    clockShows = clockShows + Pick(kJumps, numbers[0]);
    reference_.SetClock(clockShows);
}

void World::Compare() {
    const auto [expected, fileCount] = reference_.TakeSent();
    if (!isLive_) {
        return;
    }
    CompareModels();
    std::multiset<std::string> sent;
    std::size_t files = 0;
    for (const LumContainer& file : store_.TakeFiles()) {
        const json content = json::parse(file.ToJson());
        if (!content.contains("ModelDef")) {
            continue;  // the alert of an error of the start
        }
        ++files;
        const std::string model = content["ModelDef"]["ModelName"];
        Require(content["EventDate"].size() <= 100, "a file with more than 100 events");
        for (const std::string& row : RowsOf(content, reference_.Models().at(model).text)) {
            sent.insert(model + "|" + row);
        }
    }
    Same(sent, expected, "sent");
    Same(files, fileCount, "files");
}

void World::CompareModels() const {
    std::vector<std::string> rows;
    std::vector<std::string> memory;
    for (const auto& [name, model] : reference_.Models()) {
        rows.push_back(StateText(name, model.row));
        if (model.isKnown) {
            memory.push_back(StateText(name, model.memory));
        }
    }
    const Sqlite database = module_->Database();
    Same(database.Column("SELECT RM_ModelName || '|' || RM_Enabled || '|' || RM_LastAggregationTimestamp || "
                         "'|' || RM_LastUploadTimestamp FROM RegisteredModel ORDER BY RM_ModelName"),
         rows, "registered");
    Same(InMemory(), memory, "in memory");
    Same(database.Rows("SELECT S_Timestamp FROM Scheduler"), std::to_string(reference_.SchedulerTime()),
         "scheduler");
    for (const auto& [name, model] : reference_.Models()) {
        CompareTable(database, name, model);
    }
}

// Random histories: any actions in any order, with definitions dropped, reloads, jumps of the clock, cycles
// of both threads and restarts. After each step the module's answers, memory, database and files must be what
// the rules of Reference.h make of the same steps. A history is its seed. Of one that goes wrong steps are
// left out for as long as it does, and the rest is printed.
//
//     Histories [COUNT [SEED [STEPS]]]

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "host/core/LumAgent.h"
#include "host/time/LumTime.h"
#include "sched/TaskProcessorThread.h"
#include "sched/TaskSchedulerThread.h"
#include "simulation/Reference.h"
#include "support/FileStoreStandIn.h"
#include "support/LinkedModule.h"

namespace {

using nlohmann::json;

/// 2026-02-27, 22:50 UTC: hours, days and a month are about to end.
constexpr int64_t kBegin = 1772232600;
std::atomic<int64_t> clockShows{kBegin};

}  // namespace

/// The clock of the whole process.
extern "C" __attribute__((visibility("default"))) std::time_t time(std::time_t* place) noexcept {
    const std::time_t now = clockShows;
    if (place != nullptr) {
        *place = now;
    }
    return now;
}

namespace {

/// One step: what is done, and numbers from which its particulars follow, whatever was done before.
struct Step {
    enum class Kind : uint8_t {
        kCreate,
        kQuery,
        kSwitch,
        kDelete,
        kUpload,
        kPurge,
        kGap,
        kSettings,
        kDrop,
        kReload,
        kClock,
        kScheduler,
        kProcessor,
        kRestart,
        kCount,
    };
    Kind kind;
    std::array<uint32_t, 6> numbers;
};

constexpr std::array<const char*, static_cast<std::size_t>(Step::Kind::kCount)> kNames = {
    "create", "query", "switch", "delete", "upload",    "purge",     "gap",
    "set",    "drop",  "reload", "clock",  "scheduler", "processor", "restart"};
constexpr std::array<unsigned, kNames.size()> kWeights = {40, 10, 4, 1, 6, 3, 4, 3, 4, 4, 12, 8, 8, 2};

ParamText Param(const char* name, ParamType type, const char* source = "",
                AggregationOperation operation = AggregationOperation::kNone, const char* text = "") {
    return {name, type, source, operation, text};
}

/// What may be dropped. The third has the first one's name and another checksum; the last has its source
/// never.
const std::vector<ModelText>& Definitions() {
    using enum ParamType;
    using enum AggregationOperation;
    static const std::vector<ModelText> definitions = {
        {.name = "Logon",
         .upload = Policy::kHourly,
         .deletion = Policy::kMonthly,
         .params = {Param("User", kString), Param("Count", kInteger, "", kNone, "7")}},
        {.name = "Minute",
         .upload = Policy::kMinutely,
         .deletion = Policy::kWeekly,
         .params = {Param("User", kString, "", kNone, "nobody"), Param("Count", kInteger, "", kNone, "1")}},
        {.name = "Logon",
         .upload = Policy::kDaily,
         .deletion = Policy::kDaily,
         .params = {Param("User", kString), Param("Count", kInteger), Param("Extra", kString)}},
        {.name = "ByHour",
         .type = ModelType::kAutomatic,
         .source = "Logon",
         .aggregation = Policy::kHourly,
         .upload = Policy::kDaily,
         .deletion = Policy::kYearly,
         .params = {Param("Events", kInteger, "User", kCount), Param("Total", kInteger, "Count", kSum)}},
        {.name = "ByMonth",
         .type = ModelType::kAutomatic,
         .source = "Minute",
         .aggregation = Policy::kMonthly,
         .upload = Policy::kWeekly,
         .deletion = Policy::kNever,
         .params = {Param("Name", kString, "User"), Param("Top", kInteger, "Count", kMax)},
         .groupedBy = {"User"}},
        {.name = "Orphan",
         .type = ModelType::kAutomatic,
         .source = "Nobody",
         .aggregation = Policy::kMinutely,
         .upload = Policy::kYearly,
         .deletion = Policy::kNever,
         .params = {Param("Events", kInteger, "User", kCount)}},
    };
    return definitions;
}

const std::array<const char*, 6> kModelNames = {"Logon", "Minute", "ByHour", "ByMonth", "Orphan", "Nobody"};

template <class Container>
const auto& Pick(const Container& from, uint32_t number) {
    return from[number % std::size(from)];
}

/// The module and the reference, side by side.
class World {
public:
    World() { Begin(); }

    /// Does the step in both; throws where they differ.
    void Do(const Step& step) {
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
                Same(Call("UploadEvents", {{"ModelName", Name(step)}}), reference_.AskForUpload(Name(step)));
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
                Same(Call("ReloadModels", json::object()), 0);
                reference_.Reload();
                break;
            case Step::Kind::kClock:
                Jump(step.numbers);
                break;
            case Step::Kind::kScheduler:
                SchedulerThread.RunCycle(clockShows);
                reference_.RunScheduler();
                break;
            case Step::Kind::kProcessor:
                ProcessorThread.RunCycle();
                reference_.RunProcessor();
                break;
            case Step::Kind::kRestart:
                module_.reset();
                Begin();
                break;
            case Step::Kind::kCount:
                break;
        }
        Compare();
    }

private:
    using Numbers = std::array<uint32_t, 6>;

    /// What the agent does with the module at its start, as far as it has to do with rules.
    void Begin() {
        if (!scratch_.Has(TestAgent::kIni)) {
            scratch_.Write(TestAgent::kIni, Shipped("EventLogManager.ini"));
            scratch_.MakeDirectory(TestAgent::kModels);
        }
        module_ = std::make_unique<LinkedModule>(scratch_.Path());
        LumAgentGetDebugContext(nullptr)->SetLevel(LumLogLevel::kError);
        LinkedModule::Initialise();
        LinkedModule::KeepErrorsFromAlerts();
        SchedulerThread.Initialise();
        reference_.Restart();
    }

    static const char* Name(const Step& step) { return Pick(kModelNames, step.numbers[0]); }

    static uint32_t Call(const std::string& action, const json& values) {
        return TestAgent::CallWith("EventLogManager" + action, values.dump());
    }

    static void Same(uint32_t status, uint32_t expected) {
        Require(status == expected,
                "status " + std::to_string(status) + " instead of " + std::to_string(expected));
    }
    template <class Value>
    static void Same(const Value& is, const Value& expected, const std::string& what) {
        Require(is == expected, what + ": " + json(is).dump() + " instead of " + json(expected).dump());
    }

    void Create(const Numbers& numbers) {
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
            Same(Call("CreateEvent", {{"ModelName", create.model}, {"EventParams", params}}),
                 reference_.Create(create));
        }
    }

    void Query(const Numbers& numbers) {
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
        const TestAgent::Answer answer = TestAgent::Query(values.dump());
        Same(answer.status, status);
        if (status == 0) {
            CompareAnswer(json::parse(answer.container)["Result"], model, query, expected);
        }
    }

    void CompareAnswer(const json& result, const std::string& model, const ReferenceQuery& query,
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

    static std::string CellOf(const json& value) {
        return value.is_null() ? "NULL" : value.is_string() ? value.get<std::string>() : value.dump();
    }

    /// The events of an answer, or of an upload file, as rows.
    static std::multiset<std::string> RowsOf(const json& content, const ModelText& model) {
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

    void Switch(const Numbers& numbers) {
        const std::string model = Pick(kModelNames, numbers[0]);
        const bool on = numbers[1] % 2 == 0;
        Same(Call(on ? "EnableModel" : "DisableModel", {{"ModelName", model}}), reference_.Switch(model, on));
    }

    void Delete(const Numbers& numbers) {
        const std::string one = Pick(kModelNames, numbers[0]);
        const std::string other = Pick(kModelNames, numbers[1]);
        Same(Call("DeleteModels", {{"ModelName", {one, other}}}), 0);
        reference_.Delete(one);
        reference_.Delete(other);
    }

    void Purge(const Numbers& numbers) {
        const std::string model = Pick(kModelNames, numbers[0]);
        json values = {{"ModelName", model}};
        std::optional<int32_t> end;
        if (numbers[1] % 3 != 0) {
            end = static_cast<int32_t>(clockShows - numbers[2] % 4000);
            values["EndDate"] = *end;
        }
        Same(Call("DeleteEvents", values), reference_.AskForPurge(model, end));
    }

    void CheckGap(const Numbers& numbers) {
        const std::string description = numbers[0] % 2 == 0 ? "one" : "two";
        const auto object = static_cast<int32_t>(numbers[1] % 2);
        const auto time = static_cast<uint32_t>(clockShows);
        const json arguments = {
            {"Description", description}, {"Status", "s"}, {"ObjectId", object}, {"EventTimeGMT", time}};
        Same(TestAgent::Call("EventLogManagerCheckAlertMinimumGap", arguments.dump()).status,
             reference_.CheckGap(description + "-s", object, time));
    }

    void Set(const Numbers& numbers) {
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
        Same(Call("SetValues", values), 0);
    }

    /// Of two definitions with one name only one lies there at a time: which of two is taken first is open.
    void Drop(const Numbers& numbers) {
        const ModelText& model = Pick(Definitions(), numbers[0]);
        for (const auto& [file, dropped] : reference_.Dropped()) {
            if (dropped.name == model.name) {
                return;
            }
        }
        const std::string file = "file" + std::to_string(numbers[0] % Definitions().size()) + ".xml";
        module_->Drop(file, Definition(model));
        reference_.Drop(file, model);
    }

    void Jump(const Numbers& numbers) {
        constexpr std::array<int64_t, 12> kJumps = {1,    20,    20,     60,         60,   600,
                                                    3600, 86400, 604800, 40 * 86400, -300, -7200};
        clockShows = clockShows + Pick(kJumps, numbers[0]);
        reference_.SetClock(clockShows);
    }

    void Compare() {
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
        const auto [expected, fileCount] = reference_.TakeSent();
        Same(sent, expected, "sent");
        Same(files, fileCount, "files");
    }

    void CompareModels() {
        std::vector<std::string> rows;
        std::vector<std::string> memory;
        for (const auto& [name, model] : reference_.Models()) {
            rows.push_back(StateText(name, model.row));
            if (model.isKnown) {
                memory.push_back(StateText(name, model.memory));
            }
        }
        const Sqlite database = module_->Database();
        Same(database.Column(
                 "SELECT RM_ModelName || '|' || RM_Enabled || '|' || RM_LastAggregationTimestamp || "
                 "'|' || RM_LastUploadTimestamp FROM RegisteredModel ORDER BY RM_ModelName"),
             rows, "registered");
        Same(InMemory(), memory, "in memory");
        Same(database.Rows("SELECT S_Timestamp FROM Scheduler"), std::to_string(reference_.SchedulerTime()),
             "scheduler");
        for (const auto& [name, model] : reference_.Models()) {
            CompareTable(database, name, model);
        }
    }

    static std::string StateText(const std::string& name, const Reference::State& state) {
        return name + "|" + (state.enabled ? "1" : "0") + "|" + std::to_string(state.lastAggregation) + "|" +
               std::to_string(state.lastUpload);
    }

    static std::vector<std::string> InMemory() {
        std::vector<std::string> states;
        std::shared_ptr<Model_t> model;
        for (uint32_t i = 0; ModelCollection.GetAt(i, model); ++i) {
            states.push_back(
                StateText(model->GetName().GetString(),
                          {model->IsEnabled(), model->GetLastAggregationTime(), model->GetLastUploadTime()}));
        }
        return states;
    }

    static void CompareTable(const Sqlite& database, const std::string& name, const Reference::Model& model) {
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

    const TempDirectory scratch_;
    FileStoreStandIn store_;
    Reference reference_{kBegin};
    std::unique_ptr<LinkedModule> module_;
};

std::vector<Step> MakeHistory(uint64_t seed, std::size_t length) {
    std::mt19937_64 random(seed);
    std::discrete_distribution<int> pick(kWeights.begin(), kWeights.end());
    std::vector<Step> steps;
    // Something to begin with.
    for (uint32_t i = 0; i < 5; ++i) {
        steps.push_back({Step::Kind::kDrop, {i}});
    }
    steps.push_back({Step::Kind::kReload, {}});
    while (steps.size() < length) {
        Step step{static_cast<Step::Kind>(pick(random)), {}};
        for (uint32_t& number : step.numbers) {
            number = static_cast<uint32_t>(random());
        }
        steps.push_back(step);
    }
    return steps;
}

/// What is wrong with the history, and at which step; empty where nothing is.
std::string Live(const std::vector<Step>& steps) {
    clockShows = kBegin;
    std::size_t at = 0;
    try {
        World world;
        for (; at < steps.size(); ++at) {
            world.Do(steps[at]);
        }
        return {};
    } catch (const std::exception& error) {
        return "step " + std::to_string(at + 1) + ": " + error.what();
    }
}

/// Leaves steps out for as long as the history goes wrong.
std::vector<Step> Shrink(std::vector<Step> steps) {
    for (std::size_t length = steps.size() / 2; length > 0; length /= 2) {
        for (std::size_t from = 0; from < steps.size();) {
            std::vector<Step> shorter = steps;
            const auto begin = shorter.begin() + static_cast<std::ptrdiff_t>(from);
            shorter.erase(begin, begin + static_cast<std::ptrdiff_t>(std::min(length, steps.size() - from)));
            if (Live(shorter).empty()) {
                from += length;
            } else {
                steps = std::move(shorter);
            }
        }
    }
    return steps;
}

void Report(uint64_t seed, const std::vector<Step>& steps) {
    const std::vector<Step> shortest = Shrink(steps);
    std::printf("seed %lu, %s\n", static_cast<unsigned long>(seed), Live(shortest).c_str());
    for (const Step& step : shortest) {
        std::printf("  %s", kNames[static_cast<std::size_t>(step.kind)]);
        for (const uint32_t number : step.numbers) {
            std::printf(" %u", number);
        }
        std::printf("\n");
    }
}

}  // namespace

int main(int argc, char** argv) {
    const uint64_t count = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 100;
    const uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
    const std::size_t length = argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 80;
    setenv("TZ", "UTC", 1);
    tzset();
    uint64_t bad = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const std::vector<Step> steps = MakeHistory(seed + i, length);
        if (!Live(steps).empty()) {
            ++bad;
            Report(seed + i, steps);
        }
    }
    std::printf("%lu histories of %zu steps, %lu of them bad.\n", static_cast<unsigned long>(count), length,
                static_cast<unsigned long>(bad));
    return bad == 0 ? 0 : 1;
}

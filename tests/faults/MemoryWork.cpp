#include "MemoryWork.h"

#include <ctime>
#include <string>
#include <utility>

#include "alerts/AlertGapTable.h"
#include "host/core/ActionDb.h"
#include "host/time/LumTime.h"
#include "model/Model.h"
#include "sched/TaskProcessorThread.h"
#include "sched/TaskSchedulerThread.h"
#include "store/startup/StoreStartup.h"
#include "support/WaitFor.h"

namespace {

/// An action that is done a second time where it failed the first; `isDone` then says whether it is done.
Work Action(const char* name, const char* action, std::string arguments,
            std::function<void(const Machine&)> prepare = {},
            std::function<bool(const Machine&)> isDone = {}) {
    return {name, [=](const Machine& machine, uint64_t turn) {
                if (prepare) {
                    prepare(machine);
                }
                const TestAgent::Answer answer = CallWithout(turn, action, arguments);
                CheckLocks();
                if (answer.status != 0) {
                    LumContainer given;
                    LumString error;
                    Require(given.FromJson(arguments, error), "arguments");
                    Require(answer.container == given.ToJson(), "a failed call changed its container");
                    const TestAgent::Answer again = TestAgent::Call(action, arguments);
                    Require(again.status == 0, "it fails again with " + std::to_string(again.status));
                }
                Require(!isDone || isDone(machine), "it is not done");
            }};
}

bool IsEnabledInMemory(const char* name) {
    std::shared_ptr<Model_t> model;
    return ModelCollection.Get(name, model) && model->IsEnabled();
}

constexpr const char* kDeleteSums = R"({"Values":{"ModelName":["Sums"]}})";
constexpr const char* kLogon = R"({"Values":{"ModelName":"Logon"}})";

Work Creation() {
    return {"CreateEvent", [](const Machine& machine, uint64_t turn) {
                const char* const arguments =
                    R"({"Values":{"ModelName":"Logon","EventParams":{"User":"new0","Times":7,"Share":0.5}}})";
                const TestAgent::Answer answer = CallWithout(turn, "EventLogManagerCreateEvent", arguments);
                CheckLocks();
                const std::string after =
                    machine.Module().Rows("SELECT count(*) FROM Event_Logon WHERE C_User = 'new0'");
                Require(after == (answer.status == 0 ? "1" : "0"),
                        "it says " + std::to_string(answer.status) + " and the event is there " + after +
                            " times");
                CheckUploads(machine, answer.status == 0 ? 1 : 0);
            }};
}

Work Query() {
    return {"GetEvents", [](const Machine& /*machine*/, uint64_t turn) {
                const char* const arguments = R"({"Values":{"ModelName":"Logon","PageSize":50}})";
                const TestAgent::Answer right = TestAgent::Call("EventLogManagerGetEvents", arguments);
                Require(right.status == 0, "query");
                TestAgent::Answer answer = CallWithout(turn, "EventLogManagerGetEvents", arguments);
                CheckLocks();
                // The number of all events is 0 where it cannot be had.
                const std::string uncounted = R"("EventCount":0,)";
                const std::string counted = R"("EventCount":)" + std::to_string(kOldEvents) + ",";
                if (const std::size_t at = answer.container.find(uncounted); at != std::string::npos) {
                    answer.container.replace(at, uncounted.size(), counted);
                }
                Require(answer.status != 0 || answer.container == right.container,
                        "rows are wrong: " + answer.container);
                Require(TestAgent::Call("EventLogManagerGetEvents", arguments) == right, "query again");
            }};
}

/// A task of the processor; what is due runs again in the next cycle.
Work Task(const char* name, TaskType type, const char* model, LumSeconds end,
          std::function<void(const Machine&)> check) {
    return {name, [=](const Machine& machine, uint64_t turn) {
                TaskQueue.Push(MakeTask(type, model, 0, end, false));
                Require(Without(turn, [] { ProcessorThread.RunCycle(); }), "an exception left the thread");
                CheckLocks();
                ProcessorThread.RunCycle();
                CheckRegistry(machine.Module());
                check(machine);
            }};
}

Work Scheduling() {
    return {"Scheduler", [](const Machine& /*machine*/, uint64_t turn) {
                TaskSchedulerThread scheduler;
                scheduler.Initialise();
                // Every field changes, the day of the week also where the hour takes it past midnight.
                constexpr std::time_t longTime = 372 * 86400 + 3660;
                const std::time_t later = LumNow() + longTime;
                // Where it ends with an exception the thread says so and looks again.
                static_cast<void>(Without(turn, [&] { scheduler.RunCycle(later); }));
                CheckLocks();
                static_cast<void>(LinkedModule::TakeTasks());
                TaskSchedulerThread again;
                again.Initialise();
                again.RunCycle(later + longTime);
                Require(LinkedModule::TakeTasks().size() == 3, "what falls due is not queued afterwards");
            }};
}

bool FileSays(const Machine& machine, const std::string& entry) {
    return machine.Module().Directory().Read(TestAgent::kIni).find(entry) != std::string::npos;
}

Work Settings() {
    return {"SetValues", [](const Machine& machine, uint64_t turn) {
                Call("EventLogManagerSetValues", R"({"Values":{"AlertMinimumGap":5}})");
                const char* const arguments = R"({"Values":{"AlertMinimumGap":30,"EnableUpload":true}})";
                const TestAgent::Answer answer = CallWithout(turn, "EventLogManagerSetValues", arguments);
                CheckLocks();
                const bool inForce = AlertMinimumGap == 30;
                const bool isFiled = FileSays(machine, "AlertMinimumGap = 30");
                Require(inForce == isFiled || machine.Module().Log().Count("Failed to write") > 0,
                        "the file and what is in force differ");
                Require(answer.status != 0 || inForce, "a value that was answered with 0 is not in force");
                Call("EventLogManagerSetValues", arguments);
                Require(AlertMinimumGap == 30 && FileSays(machine, "AlertMinimumGap = 30"),
                        "settings are not kept");
            }};
}

Work Alert() {
    return {"CreateAlert", [](const Machine& machine, uint64_t turn) {
                const char* const arguments = R"({"Description":"no memory","Values":{"Status":"warning"}})";
                // It may be sent, or wait, or be lost with a status that says so.
                static_cast<void>(CallWithout(turn, "EventLogManagerCreateAlert", arguments));
                CheckLocks();
                const int before = machine.Sent().Alerts();
                Call("EventLogManagerCreateAlert", R"({"Description":"another","Values":{}})");
                Require(machine.Sent().Alerts() == before + 1, "later alerts do not go on");
            }};
}

/// An error line and the alert that is made of it.
Work ErrorLine() {
    return {"ErrorHook", [](const Machine& machine, uint64_t turn) {
                const char* const arguments = R"({"Values":{"ModelName":"Nobody","EventParams":{}}})";
                const TestAgent::Answer answer = CallWithout(turn, "EventLogManagerCreateEvent", arguments);
                CheckLocks();
                Require(answer.status != 0, "an event of no model is taken");
                const int before = machine.Sent().Alerts();
                Require(TestAgent::CallWith("EventLogManagerGetEvents", R"({"ModelName":"None"})") != 0,
                        "a query of no model");
                Require(machine.Sent().Alerts() == before + 1, "later alerts do not go on");
            }};
}

void DropSecond(const Machine& machine) {
    machine.Module().Drop({.name = "Second", .params = {{.name = "User"}}});
}

/// The registration of the actions, which the agent takes back where it fails.
Work Registration() {
    return {
        "Register", [](const Machine& /*machine*/, uint64_t turn) {
            LumAgentHandle handle{"Another"};
            const std::size_t before = ActionDbListActions().size();
            const LumString signature = "Another (container Values)";
            const ActionHandler handler = [](LumContainer*) { return 0U; };
            static_cast<void>(Without(turn, [&] { ActionDbRegisterAction(signature, handler, &handle); }));
            ActionDbUnregisterModule(&handle);
            Require(ActionDbListActions().size() == before, "an action stays");
            Require(ActionDbRegisterAction(signature, handler, &handle), "it cannot be registered");
            Require(ActionDbListActions().size() == before + 1, "it is not listed");
            ActionDbUnregisterModule(&handle);
        }};
}

/// The start; where it fails, the agent ends the module, and the next start works.
Work Start() {
    return {"Start",
            [](const Machine& machine, uint64_t turn) {
                DropSecond(machine);
                if (!Without(turn, [] { LinkedModule::Initialise(); })) {
                    CheckLocks();
                    LinkedModule::CleanUp();
                    LinkedModule::Initialise();
                }
                CheckLocks();
                Require(KeepStoreUp(), "the store does not come up");
                Call("EventLogManagerReloadModels", "");
                CheckRegistry(machine.Module());
                Require(ModelCollection.Contains("Second"), "a dropped definition was not taken in");
                Require(machine.Module().Rows("SELECT count(*) FROM Scheduler") == "1", "no scheduler row");
                CheckUploads(machine, 0);
            },
            false};
}

/// Both threads, from their start to their end.
Work Threads() {
    return {"Threads", [](const Machine& machine, uint64_t turn) {
                TaskQueue.Push(MakeTask(TaskType::TaskUpload, "Logon", 0, kOldEnd, false));
                static_cast<void>(Without(turn, [] {
                    LinkedModule::Activate();
                    LinkedModule::CleanUp();
                }));
                LinkedModule::CleanUp();  // what the agent does where a command failed
                CheckLocks();
                LinkedModule::Activate();
                Require(WaitFor([&] { return TaskQueue.GetCount() == 0; }), "the threads do not work");
                LinkedModule::CleanUp();
                CheckUploads(machine, 0);
            }};
}

Work End() {
    return {"End", [](const Machine& machine, uint64_t turn) {
                LinkedModule::Activate();
                if (!Without(turn, [] { LinkedModule::CleanUp(); })) {
                    LinkedModule::CleanUp();
                }
                CheckLocks();
                CheckUploads(machine, 0);
            }};
}

/// The actions that are done again where they failed.
std::vector<Work> RepeatedActions() {
    const auto disable = [](const Machine&) { Call("EventLogManagerDisableModel", kLogon); };
    const auto enable = [](const Machine&) { Call("EventLogManagerEnableModel", kLogon); };
    const auto isTakenIn = [](const Machine&) {
        Call("EventLogManagerReloadModels", "");
        return ModelCollection.Contains("Second");
    };
    const auto isDeleted = [](const Machine&) {
        Call("EventLogManagerDeleteModels", kDeleteSums);
        return !ModelCollection.Contains("Sums");
    };
    const auto isEnabled = [](const Machine&) { return IsEnabledInMemory("Logon"); };
    const auto isDisabled = [enable](const Machine& machine) {
        const bool disabled = !IsEnabledInMemory("Logon");
        CheckRegistry(machine.Module());
        enable(machine);
        return disabled;
    };
    const auto isUploaded = [](const Machine& machine) {
        CheckUploads(machine, 0);
        return true;
    };
    return {
        Action("GetValues", "EventLogManagerGetValues", "{}"),
        Action("ReloadModels", "EventLogManagerReloadModels", "{}", DropSecond, isTakenIn),
        Action("DeleteModels", "EventLogManagerDeleteModels", kDeleteSums, {}, isDeleted),
        Action("GetModelNames", "EventLogManagerGetModelNames", "{}"),
        Action("GetModel", "EventLogManagerGetModel", kLogon),
        Action("EnableModel", "EventLogManagerEnableModel", kLogon, disable, isEnabled),
        Action("DisableModel", "EventLogManagerDisableModel", kLogon, enable, isDisabled),
        Action("UploadEvents", "EventLogManagerUploadEvents", kLogon, {}, isUploaded),
        Action("DeleteEvents", "EventLogManagerDeleteEvents",
               R"({"Values":{"ModelName":"Logon","EndDate":1}})"),
        Action("CheckAlertMinimumGap", "EventLogManagerCheckAlertMinimumGap",
               R"({"Description":"gap","Status":"s","ObjectId":5,"EventTimeGMT":1000000})"),
    };
}

std::vector<Work> Tasks() {
    const auto isAggregated = [](const Machine& machine) {
        TaskQueue.Push(MakeTask(TaskType::TaskAggregate, "Sums", 0, 7200, true));
        ProcessorThread.RunCycle();
        const std::string sums =
            machine.Module().Rows("SELECT count(*) || ' ' || sum(C_Times) FROM Event_Sums");
        Require(sums == "1 120", "the sums are " + sums);
    };
    const auto isUploaded = [](const Machine& machine) { CheckUploads(machine, 0); };
    const auto isDeleted = [](const Machine& machine) {
        TaskQueue.Push(MakeTask(TaskType::TaskDelete, "Logon", 0, kOldEnd, false));
        ProcessorThread.RunCycle();
        Require(machine.Module().Rows("SELECT count(*) FROM Event_Logon") == "0", "events stay");
    };
    return {
        Task("Aggregation", TaskType::TaskAggregate, "Sums", 7200, isAggregated),
        Task("Upload", TaskType::TaskUpload, "Logon", kOldEnd, isUploaded),
        Task("Deletion", TaskType::TaskDelete, "Logon", kOldEnd, isDeleted),
    };
}

}  // namespace

std::vector<Work> AllWork() {
    std::vector<Work> all = RepeatedActions();
    for (Work& task : Tasks()) {
        all.push_back(std::move(task));
    }
    for (Work& other : std::vector<Work>{Settings(), Creation(), Query(), Alert(), ErrorLine(), Scheduling(),
                                         Registration(), Start(), Threads(), End()}) {
        all.push_back(std::move(other));
    }
    return all;
}

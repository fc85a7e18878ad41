// Sixteen threads call every action that changes something, for as many seconds as the argument says, while
// both threads of the module work. Made for the thread sanitizer; it also ends with a failure where an action
// answers something that it never should.

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <random>
#include <thread>
#include <vector>

#include "support/FileStoreStandIn.h"
#include "support/LoadedModule.h"
#include "support/Program.h"

namespace {

struct Call {
    const char* action;
    const char* arguments;
    unsigned weight;
};

constexpr const char* kCreateUsage =
    R"({"Values":{"ModelName":"DiskUsage","EventParams":{"MountPoint":"/","Time":5,"SizeMb":9,"UsedMb":5,"UsedPercent":55.5}}})";
constexpr const char* kUploadUsage = R"({"Values":{"ModelName":"DiskUsage"}})";

constexpr std::array kCalls = {
    Call{
        "EventLogManagerCreateEvent",
        R"({"Values":{"ModelName":"Logon","EventParams":{"User":"ann","Outcome":"success","Time":5,"EventDeviceId":3}}})",
        30},
    // A model that stays, so that there is something to upload.
    Call{"EventLogManagerCreateEvent", kCreateUsage, 10},
    Call{"EventLogManagerUploadEvents", kUploadUsage, 2},
    // An error line, and with it an alert, for want of the parameters.
    Call{"EventLogManagerCreateEvent", R"({"Values":{"ModelName":"Logon","EventParams":{}}})", 3},
    Call{"EventLogManagerGetEvents", R"({"Values":{"ModelName":"Logon","PageSize":10,"PageNumber":1}})", 10},
    Call{"EventLogManagerUploadEvents", R"({"Values":{"ModelName":"Logon"}})", 8},
    Call{"EventLogManagerDeleteEvents", R"({"Values":{"ModelName":"Logon"}})", 4},
    Call{"EventLogManagerEnableModel", R"({"Values":{"ModelName":"Logon"}})", 6},
    Call{"EventLogManagerDisableModel", R"({"Values":{"ModelName":"Logon"}})", 2},
    Call{"EventLogManagerGetModel", R"({"Values":{"ModelName":"LogonsByHour"}})", 4},
    Call{"EventLogManagerGetModelNames", R"({"Values":{}})", 4},
    Call{"EventLogManagerSetValues",
         R"({"Values":{"EnableUpload":true,"EnableAggregation":true,"AlertMinimumGap":0}})", 1},
    Call{"EventLogManagerSetValues", R"({"Values":{"AlertMinimumGap":60}})", 1},
    Call{"EventLogManagerReloadModels", R"({"Values":{}})", 3},
    Call{"EventLogManagerDeleteModels", R"({"Values":{"ModelName":["Logon"]}})", 1},
    Call{"EventLogManagerCreateAlert", R"({"Description":"storm","Values":{"Status":"warning"}})", 4},
    Call{"EventLogManagerCheckAlertMinimumGap",
         R"({"Description":"storm","Status":"warning","ObjectId":7,"EventTimeGMT":1772439247})", 2},
};

std::atomic<bool> over{false};
std::atomic<uint64_t> calls{0};
std::atomic<uint64_t> files{0};
std::atomic<uint64_t> alerts{0};

uint32_t CountFile(const LumContainer& request, const LumContainer& /*file*/) {
    LumString label;
    if (request.GetString("FileLabel", label)) {
        ++(label == "EventManagerEvent" ? alerts : files);
    }
    return 0;
}

void Blow(const TestAgent& agent, unsigned seed) {
    std::mt19937 random(seed);
    unsigned total = 0;
    for (const Call& call : kCalls) {
        total += call.weight;
    }
    while (!over) {
        auto pick = static_cast<unsigned>(random() % total);
        const Call* call = kCalls.data();
        for (; pick >= call->weight; ++call) {
            pick -= call->weight;
        }
        if (std::string_view(call->action) == "EventLogManagerReloadModels") {
            agent.DropShipped("Logon");
        }
        const uint32_t status = TestAgent::Call(call->action, call->arguments).status;
        Require(status == 0 || status == 1 || status == 13 || status == 45001, call->action);
        ++calls;
    }
}

void RageFor(uint32_t seconds) {
    constexpr unsigned kThreads = 16;
    const FileStoreStandIn store(CountFile);
    LoadedModule module;
    for (const char* const model : {"Logon", "LogonsByHour", "DiskUsage"}) {
        module.DropShipped(model);
    }
    module.Start();
    // The processor's first look at the queue is also the only one of a short storm.
    Require(TestAgent::Call("EventLogManagerCreateEvent", kCreateUsage).status == 0, "create an event");
    // What came in the second of the call is left to the next upload.
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    Require(TestAgent::Call("EventLogManagerUploadEvents", kUploadUsage).status == 0, "ask for an upload");
    module.Activate();
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreads; ++i) {
        threads.emplace_back(Blow, std::cref(module), i + 1);
    }
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    over = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    module.Stop();
    Require(files > 0, "uploads reach the file store");
    Require(alerts > 0, "alerts reach the file store");
    std::printf("%llu calls, %llu upload files, %llu alerts\n", static_cast<unsigned long long>(calls),
                static_cast<unsigned long long>(files), static_cast<unsigned long long>(alerts));
}

}  // namespace

int main(int argc, char** argv) {
    constexpr uint32_t kUsualSeconds = 4;
    return RunProgram([&] { RageFor(CountFrom(argc, argv, kUsualSeconds)); });
}

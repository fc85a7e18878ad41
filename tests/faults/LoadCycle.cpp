// Loads the module, lets it start and work, cleans up and unloads it, as often as the argument says, in one
// process: nothing may be left of it but the one task that is given up on purpose.

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <iterator>

#include "support/FileStoreStandIn.h"
#include "support/LoadedModule.h"
#include "support/Program.h"
#include "support/WaitFor.h"

namespace {

constexpr uint32_t kUsualTimes = 3;

std::ptrdiff_t CountEntries(const char* directory) {
    const std::filesystem::directory_iterator entries(directory);
    return std::distance(begin(entries), end(entries));
}

void Call(const char* action, std::string_view values) {
    Require(TestAgent::CallWith(action, values) == 0, action);
}

/// One life: a task whose model goes before it runs, which ends in an alert, and an upload, which is queued
/// after it.
void LiveOnce(LoadedModule& module, FileStoreStandIn& store) {
    module.DropShipped("Logon");
    module.DropShipped("DiskUsage");
    module.Start();
    static_cast<void>(store.TakeFiles());
    Call("EventLogManagerSetValues", R"({"AlertMinimumGap":0})");
    Require(TestAgent::Create("DiskUsage", "{}") != 13, "reach the model");
    Call("EventLogManagerDeleteEvents", R"({"ModelName":"Logon","EndDate":1})");
    Call("EventLogManagerUploadEvents", R"({"ModelName":"DiskUsage"})");
    Call("EventLogManagerDeleteModels", R"({"ModelName":["Logon"]})");
    module.Activate();
    Require(WaitFor([&] { return !store.Files().empty(); }), "the processor works");
    module.CleanUp();
    Call("EventLogManagerUploadEvents", R"({"ModelName":"DiskUsage"})");  // queued for nobody
    module.Unload();
}

void Live(uint32_t times) {
    FileStoreStandIn store;
    LoadedModule module;
    LiveOnce(module, store);  // what the host libraries keep for good they have from here on
    const auto descriptors = CountEntries("/proc/self/fd");
    const auto threads = CountEntries("/proc/self/task");
    for (uint32_t i = 1; i < times; ++i) {
        LiveOnce(module, store);
        Require(CountEntries("/proc/self/task") <= threads, "every thread ends");
        Require(CountEntries("/proc/self/fd") == descriptors, "every file descriptor is closed");
    }
    std::printf("%u lives, %td descriptors, %td threads\n", times, descriptors, threads);
}

}  // namespace

int main(int argc, char** argv) {
    return RunProgram([&] { Live(CountFrom(argc, argv, kUsualTimes)); });
}

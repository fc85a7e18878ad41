// Loads the module, lets it start and work, cleans up and unloads it, as often as the argument says, in one
// process: nothing may be left of it but the one task that is given up on purpose.

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <thread>

#include "faults/ModuleUnderTest.h"

namespace {

std::atomic<uint32_t> received{0};

uint32_t ReceiveFile(LumContainer* container) {
    LumString path;
    Require(container->GetString(kFileStoreMovePath, path) && FileDelete(path, false), "receive a file");
    ++received;
    return kLumModuleDone;
}

std::ptrdiff_t CountEntries(const char* directory) {
    const std::filesystem::directory_iterator entries(directory);
    return std::distance(begin(entries), end(entries));
}

void WaitForFiles(uint32_t count) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (received < count) {
        Require(std::chrono::steady_clock::now() < until, "the processor works");
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

/// One life: a task whose model goes before it runs, which ends in an alert, and an upload, which is queued
/// behind it.
void LiveOnce(const AgentDirectories& directories) {
    directories.Drop("Logon");
    directories.Drop("DiskUsage");
    LoadedModule module;
    module.Run(LumModuleCommand::kRegister);
    module.Run(LumModuleCommand::kInitialise);
    received = 0;
    CallAction("EventLogManagerSetValues", R"({"AlertMinimumGap":0})");
    Require(CallAction("EventLogManagerCreateEvent", R"({"ModelName":"DiskUsage","EventParams":{}})") != 13,
            "reach the model");
    Require(CallAction("EventLogManagerDeleteEvents", R"({"ModelName":"Logon","EndDate":1})") == 0, "purge");
    Require(CallAction("EventLogManagerUploadEvents", R"({"ModelName":"DiskUsage"})") == 0, "upload");
    Require(CallAction("EventLogManagerDeleteModels", R"({"ModelName":["Logon"]})") == 0, "delete a model");
    module.Run(LumModuleCommand::kActivate);
    WaitForFiles(1);
    module.Run(LumModuleCommand::kCleanup);
    Require(CallAction("EventLogManagerUploadEvents", R"({"ModelName":"DiskUsage"})") == 0,
            "queue for nobody");
    module.Run(LumModuleCommand::kUnregister);
}

}  // namespace

int main(int argc, char** argv) {
    const int times = argc > 1 ? std::atoi(argv[1]) : 3;
    const AgentDirectories directories;
    LumAgentHandle store{"Store"};
    ActionDbRegisterAction(kFileStoreSignature, ReceiveFile, &store);

    LiveOnce(directories);  // what the host libraries keep for good they have from here on
    const auto descriptors = CountEntries("/proc/self/fd");
    const auto threads = CountEntries("/proc/self/task");
    for (int i = 1; i < times; ++i) {
        LiveOnce(directories);
        Require(!LoadedModule::IsInMemory(), "the library leaves the memory");
        Require(CountEntries("/proc/self/task") <= threads, "every thread ends");
        Require(CountEntries("/proc/self/fd") == descriptors, "every file descriptor is closed");
    }
    std::printf("%d lives, %td descriptors, %td threads\n", times, descriptors, threads);
    return 0;
}

#include "support/ModulePair.h"

#include <dlfcn.h>

#include "BuildPaths.h"
#include "host/container/LumContainer.h"
#include "host/database/Database.h"
#include "sched/TaskProcessorThread.h"

namespace {

namespace fs = std::filesystem;

LumModuleMain EntryOf(void* library) {
    return reinterpret_cast<LumModuleMain>(dlsym(library, kLumModuleEntryPoint));
}

}  // namespace

ModulePair::ModulePair(const fs::path& place, const std::function<void()>& beforeStart)
    : module_(place), library_(dlopen(LUM_BINARY_DIR "/modules/FileStore.so", RTLD_NOW | RTLD_LOCAL)) {
    Require(library_ != nullptr, "load the file store");
    const LumModuleMain store = EntryOf(library_);
    store(static_cast<uint32_t>(LumModuleCommand::kRegister), 0, &storeHandle_);
    if (beforeStart) {
        beforeStart();
    }
    store(static_cast<uint32_t>(LumModuleCommand::kInitialise), 0, nullptr);
    LinkedModule::Initialise();
}

ModulePair::~ModulePair() {
    const LumModuleMain store = EntryOf(library_);
    store(static_cast<uint32_t>(LumModuleCommand::kCleanup), 0, nullptr);
    store(static_cast<uint32_t>(LumModuleCommand::kUnregister), 0, nullptr);
    ActionDbUnregisterModule(&storeHandle_);
    dlclose(library_);
}

void ModulePair::Prepare(const fs::path& place, const ModelText& model) {
    const TestDirectory directory(place);
    directory.Write(TestAgent::kIni, Shipped("EventLogManager.ini"));
    directory.Write(std::string(TestAgent::kModels) + "/" + model.name + ".xml", Definition(model));
}

bool ModulePair::Create(const std::string& model, const std::string& user) {
    return TestAgent::Create(model, R"({"User":")" + user + "\"}") == 0;
}

bool ModulePair::Alert(const std::string& text) {
    return TestAgent::Call("EventLogManagerCreateAlert", R"({"Description":")" + text + R"(","Values":{}})")
               .status == 0;
}

void ModulePair::UploadAndPurge(const std::string& model, LumSeconds end) {
    TaskQueue.Push(MakeTask(TaskType::TaskUpload, LumString(model), 0, end, false));
    TaskQueue.Push(MakeTask(TaskType::TaskDelete, LumString(model), 0, end, false));
    RunCycle();
}

void ModulePair::RunCycle() {
    ProcessorThread.RunCycle();
    // What the thread of the tasks left undurable is not the fault of the next action on this thread.
    static_cast<void>(DBTakeDurable());
}

std::map<std::string, std::vector<std::string>> SentEvents(const fs::path& place) {
    std::map<std::string, std::vector<std::string>> sent;
    for (const fs::directory_entry& entry : fs::directory_iterator(place / "data/FileStore/outbox")) {
        LumContainer file;
        LumString error;
        if (entry.path().extension() != ".cbor" ||
            !fs::exists(fs::path(entry.path()).replace_extension(".json"))) {
            continue;
        }
        Require(file.LoadFromFile(LumString(entry.path().string()), error), "a file is damaged");
        for (uint32_t i = 0; i < file.CountPositions("User"); ++i) {
            sent[file.FindString("User", i)->GetString()].push_back(ReadWholeFile(entry.path()));
        }
    }
    return sent;
}

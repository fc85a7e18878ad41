#include "support/LinkedModule.h"

#include <memory>
#include <utility>

#include "alerts/AlertCeiling.h"
#include "alerts/AlertGapTable.h"
#include "events/EventAggregation.h"
#include "events/EventUpload.h"
#include "events/UploadBacklog.h"
#include "host/log/LumDebug.h"
#include "host/thread/LumMutex.h"
#include "model/ModelElement.h"
#include "model/ModuleLog.h"
#include "module/ModuleMain.h"
#include "sched/TaskProcessorThread.h"
#include "sched/TaskSchedulerThread.h"
#include "store/DatabaseScope.h"
#include "store/ModelRegistry.h"
#include "store/Paths.h"

namespace {

template <class Object>
void MakeAnew(Object& object) {
    std::destroy_at(&object);
    std::construct_at(&object);
}

/// Every module-wide object but the logger, in the order in which unloading the library destroys them.
void MakeModuleObjectsAnew() {
    AlertMinimumGap = 0;
    AggregationEnabled = false;
    UploadEnabled = false;
    MakeAnew(ProcessorThread);
    MakeAnew(SchedulerThread);
    MakeAnew(UploadBacklog);
    MakeAnew(TaskQueue);
    MakeAnew(IncompleteModels);
    MakeAnew(ModelCollection);
    MakeAnew(AlertCeiling);
    MakeAnew(AlertGapTable);
    MakeAnew(AlertGapMutex);
    MakeAnew(DatabaseMutex);
    MakeAnew(DatabasePool);
    UnloadedModels.clear();
    MakeAnew(RegistryMutex);
    for (LumString* const path : {&ModelsDirectory, &DatabasePath, &DataDirectory, &IniFilePath}) {
        path->Clear();
    }
}

}  // namespace

LinkedModule::LinkedModule() {
    Command(ModuleMain, LumModuleCommand::kRegister, &handle_);
}

LinkedModule::LinkedModule(std::filesystem::path place) : TestAgent(std::move(place)) {
    Command(ModuleMain, LumModuleCommand::kRegister, &handle_);
}

LinkedModule::~LinkedModule() {
    ActionDbUnregisterModule(&handle_);
    KeepErrorsFromAlerts();
    MakeModuleObjectsAnew();
}

void LinkedModule::Initialise() {
    Command(ModuleMain, LumModuleCommand::kInitialise);
}

void LinkedModule::Activate() {
    Command(ModuleMain, LumModuleCommand::kActivate);
}

void LinkedModule::CleanUp() {
    Command(ModuleMain, LumModuleCommand::kCleanup);
}

void LinkedModule::StartWith(const ModelText& model) const {
    Drop(model);
    Initialise();
}

void LinkedModule::KeepErrorsFromAlerts() {
    ModuleDebug.SetErrorActionInvokeAddress(nullptr);
}

std::shared_ptr<Model_t> LinkedModule::Add(const ModelText& text) {
    std::shared_ptr<Model_t> model = MakeModel(text);
    Require(RegisterModel(model) && ModelCollection.Add(model), "the model was refused");
    return model;
}

std::vector<std::unique_ptr<Task_t>> LinkedModule::TakeTasks() {
    std::vector<std::unique_ptr<Task_t>> tasks;
    for (std::unique_ptr<Task_t> task; TaskQueue.Pop(task);) {
        tasks.push_back(std::move(task));
    }
    return tasks;
}

std::shared_ptr<Model_t> MakeModel(const ModelText& text) {
    auto model = std::make_shared<Model_t>(text.name.c_str(), text.modelClass.c_str(), text.source.c_str(),
                                           text.severity.c_str(), text.note.c_str(), text.type,
                                           text.aggregation, text.upload, text.deletion);
    for (const ParamText& param : text.params) {
        static_cast<void>(model->GetParams().Add(
            std::make_shared<ModelParam_t>(param.name.c_str(), param.source.c_str(), param.type,
                                           param.operation, param.defaultText.c_str())));
    }
    for (const std::string& name : text.groupedBy) {
        static_cast<void>(model->GetAggregations().Add(std::make_shared<ModelParamAgg_t>(name.c_str())));
    }
    static_cast<void>(model->ComputeChecksum());
    return model;
}

DatabaseLockout::DatabaseLockout() LUM_NO_THREAD_SAFETY_ANALYSIS {
    while (DatabaseMutex.Lock()) {
        ++taken_;
    }
}

DatabaseLockout::~DatabaseLockout() LUM_NO_THREAD_SAFETY_ANALYSIS {
    for (; taken_ > 0; --taken_) {
        DatabaseMutex.Unlock();
    }
}

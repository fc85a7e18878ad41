#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "contract/FileStore.h"
#include "events/EventAggregation.h"
#include "events/EventUpload.h"
#include "host/container/LumContainer.h"
#include "host/core/ActionDb.h"
#include "host/database/Database.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"
#include "host/thread/LumMutex.h"
#include "model/Model.h"
#include "model/ModelElement.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/DatabaseSetup.h"
#include "store/ModelRegistry.h"
#include "store/Paths.h"
#include "support/LogLines.h"
#include "support/TempDirectory.h"
#include "tasks/Task.h"

/// What a test says of a model; everything has a value that is of no concern.
struct ModelText {
    const char* name = "Logon";
    ModelType type = ModelType::kUser;
    const char* source = "";
    Policy aggregation = Policy::kUnknown;
    Policy upload = Policy::kNever;
    Policy deletion = Policy::kNever;
    std::vector<std::shared_ptr<ModelParam_t>> params{};
    std::vector<const char*> groupedBy{};
};

inline std::shared_ptr<ModelParam_t> Param(const char* name, ParamType type, const char* source = "",
                                           AggregationOperation operation = AggregationOperation::kNone) {
    return std::make_shared<ModelParam_t>(name, source, type, operation, "");
}

inline std::shared_ptr<Model_t> MakeModel(const ModelText& text) {
    auto model = std::make_shared<Model_t>(text.name, "", text.source, "", "", text.type, text.aggregation,
                                           text.upload, text.deletion);
    for (const auto& param : text.params) {
        static_cast<void>(model->GetParams().Add(param));
    }
    for (const char* const name : text.groupedBy) {
        static_cast<void>(model->GetAggregations().Add(std::make_shared<ModelParamAgg_t>(name)));
    }
    static_cast<void>(model->ComputeChecksum());
    return model;
}

/// The module's own objects on a database and directories of the test's own, without the module's threads.
/// One at a time.
class ModuleHarness {
public:
    ModuleHarness() {
        directory_.MakeDirectory("tmp");
        directory_.MakeDirectory("models");
        SetTempDirectory(directory_.At("tmp"));
        IniFilePath = LumString(LUM_SOURCE_DIR "/etc/EventLogManager.ini");
        DataDirectory = directory_.At("");
        DatabasePath = directory_.At("events.sqlite3");
        ModelsDirectory = directory_.At("models/");
        ModuleDebug.SetContext(&log_.Context());
        LumHostDebug().SetContext(&log_.Context());
        UploadEnabled = true;
        AggregationEnabled = true;
        InitializeDatabase();
    }
    ModuleHarness(const ModuleHarness&) = delete;
    ModuleHarness& operator=(const ModuleHarness&) = delete;
    ~ModuleHarness() {
        for (std::shared_ptr<Model_t> model; ModelCollection.GetAt(0, model);) {
            ModelCollection.Remove(model);
        }
        static_cast<void>(TakeTasks());
        DatabasePool.SetDatabase("SQLITE23", "", "", "", "", 0);
        ModuleDebug.SetContext(nullptr);
        LumHostDebug().SetContext(nullptr);
    }

    [[nodiscard]] const TempDirectory& Directory() const { return directory_; }

    /// Registers the model and files it in the collection.
    std::shared_ptr<Model_t> Add(const ModelText& text) const {
        std::shared_ptr<Model_t> model = MakeModel(text);
        if (!RegisterModel(model) || !ModelCollection.Add(model)) {
            throw std::runtime_error("the model was refused");
        }
        return model;
    }

    /// Runs a statement; its first cell as text, "failed" where it fails.
    static std::string Sql(const std::string& text) {
        DBConnection connection(DatabasePool);
        const GenSqlResult* const rows = connection.Query(LumString(std::string_view(text)));
        LumString cell;
        if (rows == nullptr) {
            return "failed";
        }
        static_cast<void>(rows->GetColumn(0, cell));
        return cell.GetString();
    }
    static std::string StoredTime(const char* column, const char* model) {
        return Sql(std::string("SELECT ") + column + " FROM RegisteredModel WHERE RM_ModelName = '" + model +
                   "'");
    }

    /// How often the module or its host has written exactly this line ("level Logger text").
    [[nodiscard]] int64_t Lines(std::string_view line) const {
        const std::vector<std::string> all = log_.All();
        return std::count(all.begin(), all.end(), line);
    }
    [[nodiscard]] int64_t ModuleLines(const std::string& level, const std::string& text) const {
        return Lines(level + " EventLogManager " + text);
    }

    /// Takes every task out of the queue.
    static std::vector<std::unique_ptr<Task_t>> TakeTasks() {
        std::vector<std::unique_ptr<Task_t>> tasks;
        for (std::unique_ptr<Task_t> task; TaskQueue.Pop(task);) {
            tasks.push_back(std::move(task));
        }
        return tasks;
    }

private:
    TempDirectory directory_;
    LogLines log_;
};

/// While it lives, this thread cannot take DatabaseMutex once more.
class ExhaustedDatabaseMutex {
public:
    ExhaustedDatabaseMutex() LUM_NO_THREAD_SAFETY_ANALYSIS {
        for (uint32_t i = 0; i < LumMutex::kMaxDepth; ++i) {
            static_cast<void>(DatabaseMutex.Lock());
        }
    }
    ExhaustedDatabaseMutex(const ExhaustedDatabaseMutex&) = delete;
    ExhaustedDatabaseMutex& operator=(const ExhaustedDatabaseMutex&) = delete;
    ~ExhaustedDatabaseMutex() LUM_NO_THREAD_SAFETY_ANALYSIS {
        for (uint32_t i = 0; i < LumMutex::kMaxDepth; ++i) {
            DatabaseMutex.Unlock();
        }
    }
};

/// A module that takes the file store's place and keeps what it is handed.
class ReceivedFiles {
public:
    ReceivedFiles() {
        Requests().clear();
        Files().clear();
        ActionDbRegisterAction(kFileStoreSignature, Receive, &handle_);
    }
    ReceivedFiles(const ReceivedFiles&) = delete;
    ReceivedFiles& operator=(const ReceivedFiles&) = delete;
    ~ReceivedFiles() { ActionDbUnregisterModule(&handle_); }

    /// What the action was called with, and the containers that the moved files held.
    static std::vector<LumContainer>& Requests() {
        static std::vector<LumContainer> requests;
        return requests;
    }
    static std::vector<LumContainer>& Files() {
        static std::vector<LumContainer> files;
        return files;
    }

private:
    static uint32_t Receive(LumContainer* container) {
        Requests().push_back(*container);
        LumString path;
        LumString error;
        LumContainer content;
        if (container->GetString(kFileStoreMovePath, path) && content.LoadFromFile(path, error)) {
            Files().push_back(content);
            FileDelete(path, true);
        }
        return 0;
    }

    LumAgentHandle handle_{"Receiver"};
};

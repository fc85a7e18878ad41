#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
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
#include "model/ModelElement.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/ModelRegistry.h"
#include "store/Paths.h"
#include "support/FileStoreStandIn.h"
#include "support/LinkedModule.h"

inline ParamText Param(const char* name, ParamType type, const char* source = "",
                       AggregationOperation operation = AggregationOperation::kNone) {
    return {name, type, source, operation};
}

/// The linked module, initialised, under the verbs that older tests have for it. New tests take LinkedModule.
class ModuleHarness : public LinkedModule {
public:
    ModuleHarness() {
        Initialise();
        KeepErrorsFromAlerts();
        Log().Forget();
        HostLog().Forget();
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

    /// How often the host has written exactly this line ("level Host text").
    [[nodiscard]] int64_t Lines(std::string_view line) const {
        const std::string level(line.substr(0, line.find(' ') + 1));
        return static_cast<int64_t>(HostLog().Count(
            level + std::string(line.substr(level.size() + std::string_view("Host ").size())) + "\n"));
    }
    [[nodiscard]] int64_t ModuleLines(const std::string& level, const std::string& text) const {
        return static_cast<int64_t>(Log().Count(level + " " + text + "\n"));
    }
};

using ExhaustedDatabaseMutex = DatabaseLockout;

#include <algorithm>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <ostream>

#include "client/check/DefinitionFile.h"
#include "client/commands/CommandOutput.h"
#include "client/commands/Commands.h"
#include "client/connection/DataDirectory.h"
#include "client/text/Quantity.h"
#include "client/text/TextTable.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using KnownModels = std::map<std::string, std::vector<std::string>>;

/// Adds the models that the definition files of a directory describe; ones that are known stay as they are.
void AddModelsOf(const fs::path& directory, KnownModels& known) {
    std::error_code failure;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory, failure)) {
        if (entry.path().extension() == ".xml") {
            DefinitionFile file = ReadDefinition(entry.path().string());
            known.emplace(std::move(file.model), std::move(file.parameters));
        }
    }
}

/// The models that are registered here: MODEL/CHECKSUM/FILE below the models directory.
void AddRegisteredModels(const fs::path& models, KnownModels& known) {
    std::error_code failure;
    for (const fs::directory_entry& model : fs::directory_iterator(models, failure)) {
        for (const fs::directory_entry& filed : fs::directory_iterator(model.path(), failure)) {
            AddModelsOf(filed.path(), known);
        }
    }
}

Json ToJson(const std::vector<DefinitionFile>& files) {
    Json list = Json::array();
    for (const DefinitionFile& file : files) {
        list.push_back({{"file", file.path}, {"model", file.model}, {"faults", FaultsToJson(file.faults)}});
    }
    return list;
}

void Print(std::ostream& out, const DefinitionFile& file) {
    for (const DefinitionFault& fault : file.faults) {
        out << Harmless(file.path) << ':' << fault.position.line << ':' << fault.position.column << ": "
            << Harmless(fault.text) << '\n';
    }
    if (file.faults.empty()) {
        out << Harmless(file.path) << ": model '" << Harmless(file.model) << "', "
            << CountText(file.parameters.size(), "parameter") << ", no fault found\n";
    }
}

}  // namespace

ExitStatus CheckDefinitions(CommandContext& context, const std::vector<std::string>& paths) {
    std::vector<DefinitionFile> files;
    KnownModels known;
    for (const std::string& path : paths) {
        files.push_back(ReadDefinition(path));
        known.emplace(files.back().model, files.back().parameters);
    }
    for (const std::string& path : paths) {
        AddModelsOf(fs::absolute(path).parent_path(), known);
    }
    AddRegisteredModels(ModelsDirectoryIn(GuessDataDirectory(context.agent)), known);
    bool faulty = false;
    for (DefinitionFile& file : files) {
        CheckReferences(file, known);
        faulty = faulty || !file.faults.empty();
    }
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, ToJson(files));
    } else {
        for (const DefinitionFile& file : files) {
            Print(context.console.out, file);
        }
    }
    return faulty ? ExitStatus::kFailed : ExitStatus::kDone;
}

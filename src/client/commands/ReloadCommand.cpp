#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <ostream>

#include "client/check/DefinitionFile.h"
#include "client/commands/CommandOutput.h"
#include "client/commands/Commands.h"
#include "client/connection/DataDirectory.h"
#include "client/text/TextTable.h"
#include "contract/Actions.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

/// A definition file that lay in the models directory before the reload.
struct DroppedFile {
    fs::path path;
    std::string model;                    ///< as the file names it; empty where it cannot be read
    std::vector<DefinitionFault> faults;  ///< of those the agent tells the first, or none
    bool refused = false;
    std::vector<std::string> reasons;
};

std::vector<DroppedFile> ListDropped(const std::string& directory) {
    std::vector<DroppedFile> files;
    std::error_code failure;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory, failure)) {
        if (entry.path().extension() == ".xml") {
            DefinitionFile file = ReadDefinition(entry.path().string());
            files.push_back({entry.path(), std::move(file.model), std::move(file.faults), false, {}});
        }
    }
    std::sort(files.begin(), files.end(),
              [](const DroppedFile& a, const DroppedFile& b) { return a.path < b.path; });
    return files;
}

bool Names(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// Gives each message to the file that it is about: it names the file, or else the file's model. What is left
/// is about none of them.
std::vector<std::string> Distribute(const std::vector<std::string>& messages,
                                    std::vector<DroppedFile>& files) {
    std::vector<std::string> others;
    for (const std::string& message : messages) {
        auto about = std::find_if(files.begin(), files.end(), [&](const DroppedFile& file) {
            return message.find(file.path.filename().string()) != std::string::npos;
        });
        if (about == files.end()) {
            about = std::find_if(files.begin(), files.end(), [&](const DroppedFile& file) {
                return !file.model.empty() && message.find("'" + file.model + "'") != std::string::npos;
            });
        }
        (about != files.end() ? about->reasons : others).push_back(message);
    }
    return others;
}

Json ToJson(const std::vector<DroppedFile>& files, const std::vector<std::string>& others) {
    Json list = Json::array();
    for (const DroppedFile& file : files) {
        list.push_back({{"file", file.path.filename().string()},
                        {"model", file.model},
                        {"result", file.refused ? "refused" : "taken"},
                        {"messages", file.reasons},
                        {"faults", FaultsToJson(file.faults)}});
    }
    return {{"status", 0}, {"files", std::move(list)}, {"messages", others}};
}

/// True where the agent has made the table of an automatic model without its source: the name is taken then.
bool TakesName(const std::string& reason) {
    return reason.find("makes reference to unknown") != std::string::npos ||
           reason.find("already exists in statement: CREATE TABLE") != std::string::npos;
}

void PrintFile(std::ostream& out, const DroppedFile& file) {
    out << Harmless(file.path.filename().string())
        << (file.refused ? ": refused" : Harmless(": taken in as model '" + file.model + "'")) << '\n';
    for (const std::string& reason : file.reasons) {
        out << "    " << Harmless(reason) << '\n';
    }
    for (const DefinitionFault& fault : file.faults) {
        out << "    line " << fault.position.line << ", column " << fault.position.column << ": "
            << Harmless(fault.text) << '\n';
    }
    if (file.refused && std::any_of(file.reasons.begin(), file.reasons.end(), TakesName)) {
        out << "    the name stays taken until the agent starts again: correct the file, then restart it\n";
    } else if (file.refused && file.reasons.empty() && file.faults.empty()) {
        out << "    the agent's log shows why\n";
    }
}

void Print(CommandContext& context, const std::vector<DroppedFile>& files,
           const std::vector<std::string>& others) {
    std::ostream& out = context.console.out;
    for (const DroppedFile& file : files) {
        PrintFile(out, file);
    }
    for (const std::string& message : others) {
        out << Harmless(message) << '\n';
    }
    if (files.empty() && others.empty()) {
        out << "The model files were read; there was none to take in.\n";
    }
}

}  // namespace

ExitStatus ReloadModels(CommandContext& context) {
    const AgentAnswer before = Required(FetchModelList(context.agent));
    std::vector<DroppedFile> files = ListDropped(ModelsDirectoryIn(GuessDataDirectory(context.agent)));
    const AgentAnswer answer = Required(CallAction(context.agent, actions::kReloadModels, Json::object()));
    const std::vector<std::string> models = NamesIn(Required(FetchModelList(context.agent)));
    const std::vector<std::string> others = Distribute(answer.messages, files);
    bool refused = !others.empty();
    for (DroppedFile& file : files) {
        std::error_code failure;
        file.refused = fs::exists(file.path, failure) || !Names(models, file.model);
        refused = refused || file.refused;
    }
    // A model that was there is gone when its source no longer has what it condenses.
    for (const std::string& name : NamesIn(before)) {
        refused = refused || !Names(models, name);
    }
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, ToJson(files, others));
    } else {
        Print(context, files, others);
    }
    return refused ? ExitStatus::kFailed : ExitStatus::kDone;
}

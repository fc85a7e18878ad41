#include "support/TestHost.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include <sqlite3.h>

#include "host/container/LumContainer.h"
#include "host/core/ActionDb.h"
#include "host/core/LumAgent.h"
#include "host/core/ModuleInterface.h"
#include "host/log/LumDebug.h"
#include "host/thread/LumMutex.h"
#include "model/ModuleLog.h"
#include "module/ModuleMain.h"
#include "store/DatabaseScope.h"

namespace {

void Command(LumModuleCommand command, void* pointer = nullptr) {
    if (ModuleMain(static_cast<uint32_t>(command), 0, pointer) != kLumModuleDone) {
        throw std::runtime_error("the module does not know a command");
    }
}

using Database = std::unique_ptr<sqlite3, int (*)(sqlite3*)>;

Database OpenDatabase(const LumString& path) {
    sqlite3* database = nullptr;
    sqlite3_open_v2(path.GetString(), &database, SQLITE_OPEN_READWRITE, nullptr);
    sqlite3_busy_timeout(database, 5000);
    return {database, sqlite3_close};
}

/// The lines that a logger wrote, its name left out.
std::vector<std::string> LinesOf(const std::vector<std::string>& all, const std::string& logger) {
    const std::string part = " " + logger + " ";
    std::vector<std::string> lines;
    for (const std::string& line : all) {
        const std::size_t name = line.find(part);
        if (name != std::string::npos && name == line.find(' ')) {
            lines.push_back(line.substr(0, name + 1) + line.substr(name + part.size()));
        }
    }
    return lines;
}

std::size_t CountBeginningWith(std::string_view text, const std::vector<std::string>& lines) {
    return static_cast<std::size_t>(std::count_if(
        lines.begin(), lines.end(), [text](const std::string& line) { return line.starts_with(text); }));
}

}  // namespace

TestHost::TestHost() {
    directory_.MakeDirectory("config");
    directory_.MakeDirectory(kModels);
    std::filesystem::copy_file(std::filesystem::path(LUM_SOURCE_DIR) / "etc/EventLogManager.ini",
                               directory_.Path() / kIni);
    LumString error;
    if (!LumAgentSetUp({directory_.At("config"), directory_.At("data")}, error)) {
        throw std::runtime_error(error.GetString());
    }
    static LumAgentHandle handle{"EventLogManager"};
    Command(LumModuleCommand::kRegister, &handle);
    ModuleDebug.SetContext(&lines_.Context());
    LumHostDebug().SetContext(&lines_.Context());  // the agent has just set its own
}

void TestHost::Initialise() {
    Command(LumModuleCommand::kInitialise);
}

void TestHost::Activate() {
    Command(LumModuleCommand::kActivate);
}

void TestHost::CleanUp() {
    Command(LumModuleCommand::kCleanup);
}

void TestHost::Drop(std::string_view fileName, std::string_view definition) const {
    directory_.Write(std::string(kModels) + "/" + std::string(fileName), definition);
}

void TestHost::StartWith(std::string_view definition) const {
    Drop("model.xml", definition);
    Initialise();
}

TestHost::Answer TestHost::Call(const char* action, std::string_view arguments) {
    LumContainer container;
    LumString error;
    if (!container.FromJson(arguments, error)) {
        throw std::runtime_error(error.GetString());
    }
    Answer answer{};
    if (!ActionDbCallAction(action, container, answer.status)) {
        throw std::runtime_error("no such action");
    }
    answer.container = container.ToJson();
    return answer;
}

uint32_t TestHost::Create(std::string_view model, std::string_view params) {
    return Call("EventLogManagerCreateEvent", R"({"Values":{"ModelName":")" + std::string(model) +
                                                  R"(","EventParams":)" + std::string(params) + "}}")
        .status;
}

TestHost::Answer TestHost::Query(std::string_view values) {
    return Call("EventLogManagerGetEvents", R"({"Values":)" + std::string(values) + "}");
}

std::string TestHost::Rows(const std::string& sql) const {
    const Database database = OpenDatabase(directory_.At(kDatabase));
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database.get(), sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
        return sqlite3_errmsg(database.get());
    }
    std::string text;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        text += text.empty() ? "" : "\n";
        for (int i = 0; i < sqlite3_column_count(statement); ++i) {
            const auto* const cell = reinterpret_cast<const char*>(sqlite3_column_text(statement, i));
            text.append(i > 0 ? "|" : "").append(cell != nullptr ? cell : "NULL");
        }
    }
    sqlite3_finalize(statement);
    return text;
}

bool TestHost::Change(const std::string& sql) const {
    const Database database = OpenDatabase(directory_.At(kDatabase));
    return sqlite3_exec(database.get(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

std::vector<std::string> TestHost::Log() const {
    return LinesOf(lines_.All(), "EventLogManager");
}

std::vector<std::string> TestHost::Said(std::size_t from) const {
    std::vector<std::string> lines = Log();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(std::min(from, lines.size())));
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("trace "); });
    return lines;
}

std::size_t TestHost::CountLines(std::string_view text) const {
    return CountBeginningWith(text, Log());
}

std::size_t TestHost::CountHostLines(std::string_view text) const {
    return CountBeginningWith(text, LinesOf(lines_.All(), "Host"));
}

DatabaseLockout::DatabaseLockout() {
    while (DatabaseMutex.Lock()) {
        ++taken_;
    }
}

DatabaseLockout::~DatabaseLockout() {
    for (; taken_ > 0; --taken_) {
        DatabaseMutex.Unlock();
    }
}

const std::string kLogonDefinition =
    UserModel("Logon", Param("User", "_STRING_") + Param("Count", "_INTEGER_", "0"));

std::string Param(std::string_view name, std::string_view type, std::string_view defaultText) {
    std::string text = "<PARAM><NAME>" + std::string(name) + "</NAME><TYPE>" + std::string(type) + "</TYPE>";
    if (!defaultText.empty()) {
        text += "<DEFAULT>" + std::string(defaultText) + "</DEFAULT>";
    }
    return text + "</PARAM>";
}

std::string UserModel(std::string_view name, std::string_view params) {
    return "<MODEL><NAME>" + std::string(name) +
           "</NAME><CLASS>Security</CLASS><NOTE>A note</NOTE><SEVERITY>1</SEVERITY>"
           "<TYPE>_EVENTLOG_MODELTYPE_USER_</TYPE><UPLOAD-POLICY>_DAILY_</UPLOAD-POLICY>"
           "<DELETION-POLICY>_MONTHLY_</DELETION-POLICY><PARAMS>" +
           std::string(params) + "</PARAMS></MODEL>";
}

std::string AutomaticModel(std::string_view name, std::string_view source, std::string_view policy,
                           std::string_view params, std::string_view aggregation) {
    return "<MODEL><NAME>" + std::string(name) +
           "</NAME><CLASS>Security</CLASS><NOTE>A note</NOTE><SEVERITY>1</SEVERITY>"
           "<TYPE>_EVENTLOG_MODELTYPE_AUTO_</TYPE><SOURCE>" +
           std::string(source) + "</SOURCE><AGGREGATION-POLICY>" + std::string(policy) +
           "</AGGREGATION-POLICY><UPLOAD-POLICY>_DAILY_</UPLOAD-POLICY>"
           "<DELETION-POLICY>_MONTHLY_</DELETION-POLICY><PARAMS>" +
           std::string(params) + "</PARAMS><AGGREGATION>" + std::string(aggregation) +
           "</AGGREGATION></MODEL>";
}

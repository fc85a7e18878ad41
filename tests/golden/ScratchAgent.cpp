#include "ScratchAgent.h"

#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <dlfcn.h>
#include <sqlite3.h>

#include "BuildPaths.h"
#include "contract/FileStore.h"
#include "host/core/LumAgent.h"
#include "host/core/ModuleInterface.h"
#include "host/file/LumFile.h"

namespace {

Json& Sent() {
    static Json sent = Json::array();
    return sent;
}

/// Stands in for the file store: keeps what is handed over.
uint32_t Receive(LumContainer* container) {
    LumString path;
    LumString error;
    LumContainer content;
    if (!container->GetString(kFileStoreMovePath, path) || !content.LoadFromFile(path, error) ||
        !FileDelete(path, false)) {
        return 13;
    }
    Sent().push_back(Json::parse(content.ToJson()));
    return 0;
}

void Expect(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

Json Cell(sqlite3_stmt* statement, int column) {
    switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER:
            return sqlite3_column_int64(statement, column);
        case SQLITE_FLOAT:
            return sqlite3_column_double(statement, column);
        case SQLITE_NULL:
            return nullptr;
        default:
            return std::string(reinterpret_cast<const char*>(sqlite3_column_text(statement, column)),
                               static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
    }
}

}  // namespace

ScratchAgent::ScratchAgent(std::string modulePath) : modulePath_(std::move(modulePath)) {
    constexpr std::size_t kMaxLogBytes = std::size_t{64} << 20U;
    LumString error;
    Expect(LumAgentSetUp({directory_.At("config"), directory_.At("data")}, error), error.GetString());
    LumDebugContext* const log = LumAgentGetDebugContext(nullptr);
    log->SetLevel(LumLogLevel::kTrace);
    Expect(log->OpenFile(directory_.At("log"), kMaxLogBytes, 1, error), error.GetString());
    std::filesystem::create_directories(ModelsDirectory());
    std::filesystem::copy_file(LUM_SOURCE_DIR "/etc/EventLogManager.ini", IniPath());
    Expect(ActionDbRegisterAction(kFileStoreSignature, Receive, &storeHandle_), "no file store");
}

ScratchAgent::~ScratchAgent() {
    if (library_ != nullptr) {
        Stop();
    }
    ActionDbUnregisterModule(&storeHandle_);
}

void ScratchAgent::Command(uint32_t command, void* pointer) const {
    Expect(moduleMain_(command, 0, pointer) == kLumModuleDone, "the module does not know a command");
}

void ScratchAgent::Start() {
    library_ = dlopen(modulePath_.c_str(), RTLD_NOW | RTLD_LOCAL);
    Expect(library_ != nullptr, "the module cannot be loaded: " + modulePath_);
    moduleMain_ = reinterpret_cast<LumModuleMain>(dlsym(library_, kLumModuleEntryPoint));
    Expect(moduleMain_ != nullptr, "the module has no entry point");
    Command(static_cast<uint32_t>(LumModuleCommand::kRegister), &handle_);
    Command(static_cast<uint32_t>(LumModuleCommand::kInitialise));
}

void ScratchAgent::Stop() {
    Command(static_cast<uint32_t>(LumModuleCommand::kCleanup));
    Command(static_cast<uint32_t>(LumModuleCommand::kUnregister));
    ActionDbUnregisterModule(&handle_);
    dlclose(std::exchange(library_, nullptr));
    Expect(dlopen(modulePath_.c_str(), RTLD_NOW | RTLD_NOLOAD) == nullptr, "the module stays loaded");
}

ScratchAgent::Answer ScratchAgent::Call(const std::string& action, const Json& arguments) {
    LumContainer container;
    LumString error;
    Expect(container.FromJson(arguments.is_null() ? std::string() : arguments.dump(), error),
           error.GetString());
    Answer answer;
    Expect(ActionDbCallAction(LumString(std::string_view(action)), container, answer.status),
           "no such action: " + action);
    answer.container = Json::parse(container.ToJson());
    return answer;
}

Json ScratchAgent::Rows(const std::string& sql) const {
    sqlite3* opened = nullptr;
    sqlite3_open_v2((DataDirectory() + "/EventLogManager.sqlite3").c_str(), &opened, SQLITE_OPEN_READWRITE,
                    nullptr);
    const std::unique_ptr<sqlite3, int (*)(sqlite3*)> database(opened, sqlite3_close);
    constexpr int kBusyMs = 5000;
    sqlite3_busy_timeout(opened, kBusyMs);
    sqlite3_stmt* prepared = nullptr;
    Expect(sqlite3_prepare_v2(opened, sql.c_str(), -1, &prepared, nullptr) == SQLITE_OK,
           sql + ": " + sqlite3_errmsg(opened));
    const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement(prepared, sqlite3_finalize);
    Json rows = Json::array();
    int result = sqlite3_step(prepared);
    for (; result == SQLITE_ROW; result = sqlite3_step(prepared)) {
        Json row = Json::array();
        for (int i = 0; i < sqlite3_column_count(prepared); ++i) {
            row.push_back(Cell(prepared, i));
        }
        rows.push_back(std::move(row));
    }
    Expect(result == SQLITE_DONE, sql + ": " + sqlite3_errmsg(opened));
    return rows;
}

ScratchAgent::Log ScratchAgent::TakeLog() {
    const std::string content = directory_.Read("log");
    Log log;
    for (std::size_t end = content.find('\n', logRead_); end != std::string::npos;
         end = content.find('\n', logRead_)) {
        std::istringstream line(content.substr(logRead_, end - logRead_));
        logRead_ = end + 1;
        std::string time;
        std::string level;
        std::string logger;
        std::string text;
        line >> time >> level >> logger;
        line.ignore();  // the blank before the text, which may begin or end with blanks of its own
        std::getline(line, text);
        (logger == "Host" ? log.host : log.module).push_back(level.append(" ").append(text));
    }
    return log;
}

Json ScratchAgent::TakeSent() {
    return std::exchange(Sent(), Json::array());
}

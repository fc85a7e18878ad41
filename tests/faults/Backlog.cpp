// Uploads a backlog of as many events as the argument says: every event must be in exactly one file, and
// every file but the last must be full.

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

#include <sqlite3.h>

#include "faults/ModuleUnderTest.h"

namespace {

constexpr uint32_t kFileEvents = 100;

std::vector<bool> seen;  // of the events, by their dates from 1 on; the processor's alone until the end
std::atomic<uint32_t> events{0};
std::atomic<uint32_t> files{0};

uint32_t ReceiveFile(LumContainer* container) {
    LumString path;
    LumString error;
    LumContainer content;
    Require(container->GetString(kFileStoreMovePath, path) && content.LoadFromFile(path, error),
            "read a file");
    Require(FileDelete(path, false), "take a file away");
    const uint32_t count = content.CountValues("EventDate");
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t date = 0;
        Require(content.GetInt32("EventDate", date, i) && date < seen.size(), "a date of the backlog");
        Require(!seen[date], "an event leaves once");
        seen[date] = true;
    }
    ++files;
    events += count;
    return 0;
}

void Fill(const AgentDirectories& directories, uint32_t count) {
    const std::string path = directories.Path("data/EventLogManager/EventLogManager.sqlite3");
    sqlite3* database = nullptr;
    Require(sqlite3_open(path.c_str(), &database) == SQLITE_OK, "open the database");
    const std::string sql = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                            std::to_string(count) +
                            ") INSERT INTO Event_Logon (E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, C_User) "
                            "SELECT i, 0, i % 200, 0, 'user' || i FROM n";
    Require(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK, "fill the table");
    sqlite3_close(database);
}

}  // namespace

int main(int argc, char** argv) {
    const auto count = static_cast<uint32_t>(argc > 1 ? std::atoi(argv[1]) : 1050);
    const AgentDirectories directories;
    LumAgentHandle store{"Store"};
    ActionDbRegisterAction(kFileStoreSignature, ReceiveFile, &store);
    directories.Drop("Logon");
    seen.resize(std::size_t{count} + 1);
    LoadedModule module;
    module.Run(LumModuleCommand::kRegister);
    module.Run(LumModuleCommand::kInitialise);
    Fill(directories, count);
    Require(CallAction("EventLogManagerUploadEvents", R"({"ModelName":"Logon"})") == 0, "upload");
    module.Run(LumModuleCommand::kActivate);
    const auto until = std::chrono::steady_clock::now() + std::chrono::minutes(5);
    while (events < count) {
        Require(std::chrono::steady_clock::now() < until, "every event leaves");
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    module.Run(LumModuleCommand::kCleanup);
    module.Run(LumModuleCommand::kUnregister);
    Require(files == (count + kFileEvents - 1) / kFileEvents, "every file but the last is full");
    std::printf("%u events in %u files\n", events.load(), files.load());
    return 0;
}

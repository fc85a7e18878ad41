#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/core/ActionDb.h"
#include "host/core/ModuleInterface.h"
#include "support/LogReader.h"
#include "support/ModelText.h"
#include "support/Sqlite.h"
#include "support/TempDirectory.h"

/// What went wrong on the test's side is an exception.
void Require(bool holds, const std::string& what);

/// The content of a file below etc/, as it is shipped.
[[nodiscard]] std::string Shipped(const std::string& name);

/// The agent's side of the EventLogManager module in the test's own process: directories with the shipped
/// settings, a log of all levels, calls of actions. LinkedModule and LoadedModule add the module. One at a
/// time.
class TestAgent {
public:
    /// What an action left: its status and its container as JSON.
    struct Answer {
        uint32_t status;
        std::string container;

        bool operator==(const Answer&) const = default;
    };

    TestAgent(const TestAgent&) = delete;
    TestAgent& operator=(const TestAgent&) = delete;

    /// Puts a definition file into the models directory.
    void Drop(std::string_view fileName, std::string_view definition) const;
    /// The same under the model's name.
    void Drop(const ModelText& model) const { Drop(model.name + ".xml", Definition(model)); }
    /// Drops the definition etc/models/<name>.xml.
    void DropShipped(const std::string& name) const {
        Drop(name + ".xml", Shipped("models/" + name + ".xml"));
    }

    /// Calls an action with a container given as JSON.
    static Answer Call(const std::string& action, std::string_view arguments);
    /// The same with the JSON of "Values" alone, as most actions have nothing else.
    static uint32_t CallWith(const std::string& action, std::string_view values);
    /// Creates an event; `params` is the JSON of "EventParams".
    static uint32_t Create(std::string_view model, std::string_view params);
    static Answer Query(std::string_view values);

    /// The module's database, opened as another program would.
    [[nodiscard]] Sqlite Database() const { return Sqlite(directory_ / kDatabase); }
    [[nodiscard]] std::string Rows(std::string_view sql) const { return Database().Rows(sql); }
    void Change(const std::string& sql) const { Database().Run(sql); }

    /// The lines of the module, and those of the host's own libraries.
    [[nodiscard]] LogReader& Log() { return log_; }
    [[nodiscard]] const LogReader& Log() const { return log_; }
    [[nodiscard]] LogReader& HostLog() { return hostLog_; }
    [[nodiscard]] const LogReader& HostLog() const { return hostLog_; }
    /// What the module has said since its log was last forgotten, but for the traces.
    [[nodiscard]] std::vector<std::string> Said() const { return log_.Said(); }

    /// Where config/, data/ and the log lie, and some paths below it.
    [[nodiscard]] const TestDirectory& Directory() const { return directory_; }
    static constexpr const char* kData = "data/EventLogManager";
    static constexpr const char* kModels = "data/EventLogManager/models";
    static constexpr const char* kDatabase = "data/EventLogManager/EventLogManager.sqlite3";
    static constexpr const char* kIni = "config/EventLogManager.ini";

protected:
    /// On a scratch directory of its own.
    TestAgent();
    /// On a directory that is there already and stays.
    explicit TestAgent(std::filesystem::path place);
    ~TestAgent() = default;

    /// Has `main` carry out a command.
    static void Command(LumModuleMain main, LumModuleCommand command, void* pointer = nullptr);

    /// Who the module is.
    LumAgentHandle handle_{"EventLogManager"};

private:
    void SetUp() const;

    const std::optional<TempDirectory> scratch_;
    const TestDirectory directory_;
    LogReader log_{directory_ / "log", "EventLogManager"};
    LogReader hostLog_{directory_ / "log", "Host"};
};

#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "host/container/LumContainer.h"
#include "host/core/ActionDb.h"
#include "support/TempDirectory.h"

/// JSON whose names keep their order, as those of a container do.
using Json = nlohmann::ordered_json;

/// An agent of the test's own that runs the module as it is delivered: the shared library, loaded, driven and
/// unloaded through its entry point alone. What can go wrong on the test's side is an exception.
class ScratchAgent {
public:
    explicit ScratchAgent(std::string modulePath);
    ScratchAgent(const ScratchAgent&) = delete;
    ScratchAgent& operator=(const ScratchAgent&) = delete;
    /// Stops the module where it runs.
    ~ScratchAgent();

    /// Loads the module and drives it up to its initialisation; its threads are not started.
    void Start();
    /// Cleans the module up and unloads it.
    void Stop();

    struct Answer {
        uint32_t status = 0;
        Json container;
    };
    Answer Call(const std::string& action, const Json& arguments);

    /// The cells of a statement's rows as JSON values of SQLite's types. Run by a connection of the test's
    /// own.
    [[nodiscard]] Json Rows(const std::string& sql) const;

    /// What was logged since the last call, as lines "level text".
    struct Log {
        std::vector<std::string> module;
        std::vector<std::string> host;  ///< by the host's own libraries
    };
    [[nodiscard]] Log TakeLog();
    /// The content of the files that the module has handed to the file store since the last call.
    [[nodiscard]] static Json TakeSent();

    [[nodiscard]] const TempDirectory& Directory() const { return directory_; }
    [[nodiscard]] std::string ModelsDirectory() const { return DataDirectory() + "/models"; }
    [[nodiscard]] std::string DataDirectory() const { return directory_ / "data/EventLogManager"; }
    [[nodiscard]] std::string IniPath() const { return directory_ / "config/EventLogManager.ini"; }

private:
    void Command(uint32_t command, void* pointer = nullptr) const;

    const std::string modulePath_;
    const TempDirectory directory_;
    LumAgentHandle handle_{"EventLogManager"};
    LumAgentHandle storeHandle_{"FileStore"};
    void* library_ = nullptr;
    uint32_t (*moduleMain_)(uint32_t, uint32_t, void*) = nullptr;
    std::size_t logRead_ = 0;
};

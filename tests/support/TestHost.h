#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "support/LogLines.h"
#include "support/TempDirectory.h"

/// An agent in the test's own process with the EventLogManager module linked in: directories of its own, the
/// shipped ini file, and a log that can be read back. There can be one in the life of a process, as there can
/// be one module.
class TestHost {
public:
    /// What an action left: its status and its container as JSON.
    struct Answer {
        uint32_t status;
        std::string container;

        bool operator==(const Answer&) const = default;
    };

    /// Makes the directories and registers the module's actions.
    TestHost();

    /// The lifecycle commands of the module.
    static void Initialise();
    static void Activate();
    static void CleanUp();

    /// Puts a definition file into the models directory.
    void Drop(std::string_view fileName, std::string_view definition) const;
    /// Drops a model file and starts the module, which registers it.
    void StartWith(std::string_view definition) const;

    /// Calls an action with a container given as JSON.
    static Answer Call(const char* action, std::string_view arguments);
    /// Creates an event; `params` is the JSON of "EventParams".
    static uint32_t Create(std::string_view model, std::string_view params);
    static Answer Query(std::string_view values);

    /// Reads the module's database as another program would: cells parted by |, rows by line ends.
    [[nodiscard]] std::string Rows(const std::string& sql) const;
    /// Changes the database as another program would; true where that worked.
    bool Change(const std::string& sql) const;

    /// The lines of the module's logger so far: "error RegisterModel: Failed to ...".
    [[nodiscard]] std::vector<std::string> Log() const;
    /// The same without trace lines, from the `from`th line on.
    [[nodiscard]] std::vector<std::string> Said(std::size_t from = 0) const;
    /// How many lines begin with `text`.
    [[nodiscard]] std::size_t CountLines(std::string_view text) const;
    /// The same for the lines of the host's own libraries.
    [[nodiscard]] std::size_t CountHostLines(std::string_view text) const;

    [[nodiscard]] const TempDirectory& Directory() const { return directory_; }
    /// Paths below the scratch directory, for Directory().
    static constexpr const char* kModels = "data/EventLogManager/models";
    static constexpr const char* kDatabase = "data/EventLogManager/EventLogManager.sqlite3";
    static constexpr const char* kIni = "config/EventLogManager.ini";

private:
    TempDirectory directory_;
    HostLogLines lines_;
};

/// Takes DatabaseMutex as often as a thread may, so that whoever needs it next on this thread does not get
/// it.
class DatabaseLockout {
public:
    DatabaseLockout();
    DatabaseLockout(const DatabaseLockout&) = delete;
    DatabaseLockout& operator=(const DatabaseLockout&) = delete;
    ~DatabaseLockout();

private:
    uint32_t taken_ = 0;
};

/// The user model "Logon" with the parameters Count (integer, default 0) and User (text, no default).
extern const std::string kLogonDefinition;
/// A user model called `name` with the given PARAM elements.
[[nodiscard]] std::string UserModel(std::string_view name, std::string_view params);
/// One PARAM element; an empty default is left out.
[[nodiscard]] std::string Param(std::string_view name, std::string_view type,
                                std::string_view defaultText = {});
/// An automatic model called `name` over `source` with the given PARAM elements and aggregation entries.
[[nodiscard]] std::string AutomaticModel(std::string_view name, std::string_view source,
                                         std::string_view policy, std::string_view params,
                                         std::string_view aggregation = {});

#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "support/HttpClient.h"
#include "support/LogReader.h"
#include "support/ModelText.h"
#include "support/Process.h"
#include "support/Sqlite.h"
#include "support/TempDirectory.h"

/// A real agent process on directories of its own: the `lumagent` beside the running test.
class AgentProcess : public Process {
public:
    AgentProcess() = default;
    AgentProcess(const AgentProcess&) = delete;
    AgentProcess& operator=(const AgentProcess&) = delete;
    /// Ends what still runs, before its directories go.
    ~AgentProcess() { End(); }

    /// Further arguments of the command line.
    std::vector<std::string> arguments;
    /// The limit of open files that the process gets; 0 leaves it alone.
    std::size_t descriptorLimit = 0;
    /// The part of it that the process may use until it asks for all; 0 leaves it alone.
    std::size_t softDescriptorLimit = 0;
    /// How many bytes of memory of its own the process may have; 0 for any.
    std::size_t memoryLimit = 0;
    /// A variable "NAME=value" for the process's environment; empty for none.
    std::string environment;

    [[nodiscard]] const TempDirectory& GetScratch() const { return scratch_; }
    [[nodiscard]] std::string GetConfigDirectory() const { return scratch_ / "config"; }
    [[nodiscard]] std::string GetDataDirectory() const { return scratch_ / "data"; }
    [[nodiscard]] std::string GetSocketPath() const { return scratch_ / "data/agent.sock"; }

    /// Writes agent.ini.
    void WriteIni(std::string_view content) const { scratch_.Write("config/agent.ini", content); }
    /// Puts a definition file into the models directory of EventLogManager, under the model's name.
    void Drop(const ModelText& model) const;
    /// The database of EventLogManager, opened as another program would.
    [[nodiscard]] Sqlite Database() const;

    /// Writes the shipped settings of the agent and of EventLogManager. MachineEvents is left out: it fills
    /// tables by itself, which is for its own tests alone.
    void WriteShippedSettings() const;

    void Start();
    /// Waits until it serves its socket; false where it has ended.
    [[nodiscard]] bool WaitUntilServing() const;
    bool StartAndServe();

    [[nodiscard]] HttpReply Request(std::string_view method, std::string_view target,
                                    std::string_view body = {}) const;

    /// What it has written to standard error so far, from all its starts.
    [[nodiscard]] std::string ReadStandardError() const;
    [[nodiscard]] std::string ReadLog() const;
    [[nodiscard]] bool WaitForLog(std::string_view part) const;
    [[nodiscard]] std::size_t CountDescriptors() const;

private:
    /// Takes the limits, in the new process.
    void Prepare() const;

    TempDirectory scratch_;
};

/// Runs a shell command; its standard output, or "status N" where it failed.
[[nodiscard]] std::string RunShell(const std::string& command);

/// The directory that the running test lies in.
[[nodiscard]] std::string BinaryDirectory();
/// The path of a test module, by its name.
[[nodiscard]] std::string TestModule(const std::string& name);

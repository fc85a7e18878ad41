#pragma once

#include <filesystem>
#include <string>

#include "support/TestAgent.h"

/// The module as it is delivered, in the test's own process: the shared library, loaded, driven and unloaded
/// through its entry point alone.
class LoadedModule : public TestAgent {
public:
    LoadedModule() = default;
    /// On a machine that is there already: `place` has config/ and data/.
    explicit LoadedModule(std::filesystem::path place) : TestAgent(std::move(place)) {}
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;
    /// Stops the module where it runs.
    ~LoadedModule();

    /// Loads the library and has it register its actions.
    void Load();
    void Initialise() const { Command(main_, LumModuleCommand::kInitialise); }
    /// Starts the module's threads.
    void Activate() const { Command(main_, LumModuleCommand::kActivate); }
    void CleanUp() const { Command(main_, LumModuleCommand::kCleanup); }
    /// The module leaves the registry and the memory.
    void Unload();

    /// Load and Initialise; CleanUp and Unload.
    void Start();
    void Stop();

    [[nodiscard]] static bool IsInMemory();

private:
    void* library_ = nullptr;
    LumModuleMain main_ = nullptr;
};

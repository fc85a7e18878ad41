#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "support/shim/FaultPlan.h"

/// What a process left on its way, in memory that outlives it.
struct Account {
    FaultPlan plan;
    std::atomic<int32_t> created{0};  ///< events whose creation was answered with 0
    std::atomic<bool> recovered{false};
};

/// Work that is disturbed.
struct Scene {
    const char* name;
    bool isFirstStart;  ///< nothing is there yet but settings and dropped definitions
    bool withStart;     ///< the start is disturbed too
    /// What happens to a prepared machine before, in a process of its own; may be null.
    void (*prepare)(const std::filesystem::path& place);
    /// What is dropped before the work.
    std::vector<std::string> drops;
    void (*work)(Account& account);
};

/// All of them; they end with the one whose name is null.
extern const Scene kScenes[];

/// The number of events of Logon before, called old1 and so on.
inline constexpr int kOldEvents = 230;

/// Makes the directories of a machine: settings and, where the scene is not a first start, registered models
/// with events. Runs the modules.
void PrepareMachine(const Scene& scene, const std::filesystem::path& place);

/// What has to work once all is well, on whatever machine, within one cycle; with nothing left to do at the
/// end. What does not is an exception.
void Recover(const std::filesystem::path& place, Account& account);

/// Puts the definition of one of the machine's models into the models directory.
void DropDefinition(const std::filesystem::path& place, const std::string& model);

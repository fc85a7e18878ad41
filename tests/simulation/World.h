#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "simulation/Reference.h"
#include "support/FileStoreStandIn.h"
#include "support/LinkedModule.h"
#include "support/TempDirectory.h"

/// What time() answers in the whole process.
extern std::atomic<int64_t> clockShows;

/// One step: what is done, and numbers from which its particulars follow, whatever was done before.
struct Step {
    enum class Kind : uint8_t {
        kCreate,
        kQuery,
        kSwitch,
        kDelete,
        kUpload,
        kPurge,
        kGap,
        kSettings,
        kDrop,
        kReload,
        kClock,
        kScheduler,
        kProcessor,
        kRestart,
        kKill,
        kCount,
    };
    Kind kind;
    std::array<uint32_t, 6> numbers;
};

/// Of each kind.
inline constexpr std::array<const char*, static_cast<std::size_t>(Step::Kind::kCount)> kStepNames = {
    "create", "query",  "switch", "delete",    "upload",    "purge",   "gap", "set",
    "drop",   "reload", "clock",  "scheduler", "processor", "restart", "kill"};

/// The module and the reference, side by side. What a process that was killed has done, the next one does in
/// the reference alone.
class World {
public:
    /// On a directory that is empty, or has what the process before has left.
    World(const std::filesystem::path& place, bool isLive);

    /// Does the step in both; throws where they differ.
    void Do(const Step& step);

    /// From the next step on, which starts the module, everything is done in both.
    void BeLive() { isLive_ = true; }

private:
    using Numbers = std::array<uint32_t, 6>;

    void Begin();
    void Act(const std::string& action, const nlohmann::json& values, uint32_t expected) const;
    void Create(const Numbers& numbers);
    void Query(const Numbers& numbers) const;
    void CompareAnswer(const nlohmann::json& result, const std::string& model, const ReferenceQuery& query,
                       const std::vector<ReferenceEvent>& expected) const;
    void Switch(const Numbers& numbers);
    void Delete(const Numbers& numbers);
    void Purge(const Numbers& numbers);
    void CheckGap(const Numbers& numbers);
    void Set(const Numbers& numbers);
    void Drop(const Numbers& numbers);
    void Jump(const Numbers& numbers);
    void Compare();
    void CompareModels() const;

    const TestDirectory place_;
    bool isLive_;
    FileStoreStandIn store_;
    Reference reference_;
    std::unique_ptr<LinkedModule> module_;
};

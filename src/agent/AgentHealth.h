#pragma once

#include <cstdint>
#include <vector>

#include "host/text/LumString.h"

/// Whether the agent can do its work: what its modules report (LumHealth.h), which of them are not there, and
/// how much room is left. Constant after construction; may be asked from any thread.
class AgentHealth {
public:
    /// `missingModules` are the sentences on those that could not be loaded.
    AgentHealth(const LumString& dataDirectory, uint32_t minFreeMb, std::vector<LumString> missingModules)
        : dataDirectory_(dataDirectory), minFreeMb_(minFreeMb), missingModules_(std::move(missingModules)) {}

    /// One sentence for each thing that is wrong.
    [[nodiscard]] std::vector<LumString> GetReasons() const;

private:
    [[nodiscard]] LumString CheckFreeRoom() const;

    const LumString dataDirectory_;
    const uint32_t minFreeMb_;
    const std::vector<LumString> missingModules_;
};

/// The bytes that this process may still write below `directory`; false, with errno, where the system does
/// not say.
[[nodiscard]] bool ReadFreeBytes(const LumString& directory, uint64_t& bytes);

#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <string_view>

#include "host/container/LumContainer.h"
#include "support/FileStoreStandIn.h"
#include "support/LinkedModule.h"

/// What the work without memory (MemoryWork.h) is done on, and what must hold there at every moment at which
/// nothing runs. A check that fails is an exception.

/// How many events Logon has at first, by the users old1, old2, ..., and from when on there are none of them.
inline constexpr int kOldEvents = 120;
inline constexpr LumSeconds kOldEnd = 2000;

/// What the file store was handed.
class Received {
public:
    uint32_t Take(const LumContainer& content);

    /// Of all events.
    [[nodiscard]] const std::set<std::string>& Users() const { return users_; }
    [[nodiscard]] int Alerts() const { return alerts_; }

private:
    std::set<std::string> users_;
    int alerts_ = 0;
};

/// Directories that are there already, the module on them, and a stand-in for the file store.
class Machine {
public:
    explicit Machine(const std::filesystem::path& directory);

    [[nodiscard]] const LinkedModule& Module() const { return module_; }
    [[nodiscard]] const Received& Sent() const { return received_; }

private:
    Received received_;
    FileStoreStandIn store_;
    LinkedModule module_;
};

/// Makes config/ and data/ in `place`: the models Logon, which has the old events, and Sums, which adds them
/// up.
void PrepareMachine(const std::filesystem::path& place);

/// Runs `work` without its `turn`th block of memory; true where it ended without an exception.
[[nodiscard]] bool Without(uint64_t turn, const std::function<void()>& work);
/// Calls an action without its `turn`th block.
[[nodiscard]] TestAgent::Answer CallWithout(uint64_t turn, const char* action, std::string_view arguments);
/// Calls an action that has to succeed.
void Call(const char* action, std::string_view arguments);

/// Another thread can take every lock.
void CheckLocks();
/// Registry, collection and files say the same, and each model has its table.
void CheckRegistry(const TestAgent& agent);
/// All that waits is sent; the old events and `created` new ones were sent.
void CheckUploads(const Machine& machine, int created);
/// Actions succeed.
void CheckActions();

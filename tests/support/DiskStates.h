#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "support/shim/DiskRecord.h"

/// What a disk may hold after a loss of power in the middle of a record. What was synced is there. Of what a
/// file was given after its last sync there may be nothing, all, any of its sectors of 512 bytes, or the
/// beginning, torn somewhere. A name that was made, moved or removed is certain once its directory was
/// synced; of the others there may be any, as long as each directory changed in its order. A move is one
/// change, also between two directories, as in every file system with a journal.
class DiskStates {
public:
    /// `directory` as it is now is on the disk.
    explicit DiskStates(const std::filesystem::path& directory);

    /// What was done to it since. With `ignoreSyncs` no sync has any effect.
    void Take(std::vector<DiskCall> calls, bool ignoreSyncs);

    [[nodiscard]] const std::vector<DiskCall>& Calls() const { return calls_; }

    /// Makes `target`, which must not exist, what is left of a loss of power after the first `count` calls.
    /// The same seed gives the same state. The index of a write-ahead log is left out.
    void Build(std::size_t count, uint64_t seed, const std::filesystem::path& target) const;

private:
    using Names = std::map<std::string, std::size_t>;
    struct Object {
        bool isDirectory = false;
        std::string content{};             // of a file, at first
        Names names{};                     // of a directory, at first
        std::vector<std::size_t> calls{};  // writes and truncations
        std::vector<std::size_t> syncs{};
    };
    /// The objects that a call is about.
    struct Parties {
        std::size_t file = kNobody;
        std::size_t from = kNobody;
        std::size_t to = kNobody;
    };
    enum class Fate : uint8_t { kNothing, kEverything, kParts, kTorn };
    class Loss;

    static constexpr std::size_t kNobody = SIZE_MAX;

    std::size_t AddExisting(const std::filesystem::path& path);
    [[nodiscard]] std::size_t Find(uint64_t inode) const;
    /// How many of the first `count` calls are certain for the object.
    [[nodiscard]] std::size_t CertainCalls(std::size_t object, std::size_t count) const;

    std::vector<Object> objects_;              // the first is the directory itself
    std::map<uint64_t, std::size_t> byInode_;  // as of the last call
    std::vector<DiskCall> calls_;
    std::vector<Parties> parties_;
};

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "fleet/wire/Receipt.h"

/// What was sent and is not confirmed by a receipt yet: first under way to the broker, then acknowledged by
/// it. Times are milliseconds of one clock that never goes back. An object belongs to one thread.
class Ledger {
public:
    /// Notes that the entry `name` was published; `number` tells its acknowledgement from others.
    void Add(const std::string& name, const std::string& digest, std::size_t bytes, uint64_t number,
             int64_t nowMs);
    /// The broker holds number `number`, as `sequence` of its stream. Nothing where the number is not known.
    void Acknowledge(uint64_t number, uint64_t sequence, int64_t askAtMs);
    /// The broker has refused number `number`: forgets it, and gives its name, empty where it is not known.
    [[nodiscard]] std::string Refuse(uint64_t number);
    /// Forgets everything that the broker has not acknowledged; says how many that were.
    std::size_t ForgetUnacknowledged();
    /// The same for what was published before `beforeMs`.
    std::size_t ForgetUnacknowledgedBefore(int64_t beforeMs);

    /// The names of the entries with this content, which a device may have twice.
    [[nodiscard]] std::vector<std::string> NamesOf(const std::string& digest) const;
    void Forget(const std::string& name);

    [[nodiscard]] bool Holds(const std::string& name) const { return entries_.count(name) != 0; }
    [[nodiscard]] std::size_t CountAll() const { return entries_.size(); }
    [[nodiscard]] std::size_t CountUnacknowledged() const { return underWay_.size(); }
    [[nodiscard]] std::size_t UnacknowledgedBytes() const { return underWayBytes_; }

    /// Up to kMaxReceiptLines questions for acknowledged entries whose time has come by `nowMs`; each is put
    /// off to `nextMs`.
    [[nodiscard]] std::vector<AskLine> TakeQuestions(int64_t nowMs, int64_t nextMs);

private:
    /// A SHA-256 digest as bytes.
    using Digest = std::array<uint8_t, 32>;

    struct Sent {
        Digest digest{};
        uint64_t number = 0;  ///< of underWay_; 0: the broker has acknowledged it
        uint64_t sequence = 0;
        int64_t askAtMs = 0;
    };
    struct UnderWay {
        std::pair<const std::string, Sent>* entry = nullptr;  ///< of entries_
        std::size_t bytes = 0;
        int64_t sentAtMs = 0;
    };

    [[nodiscard]] static Digest Packed(std::string_view digits);
    [[nodiscard]] static std::string Unpacked(const Digest& digest);
    [[nodiscard]] static uint64_t StartOf(const Digest& digest);
    /// Number `number` is not under way any more; nothing where it is not.
    void Land(uint64_t number);

    std::map<std::string, Sent> entries_;
    std::map<uint64_t, UnderWay> underWay_;
    std::size_t underWayBytes_ = 0;
    /// By the first bytes of the digest; refers to the keys of entries_.
    std::unordered_multimap<uint64_t, const std::string*> byDigest_;
};

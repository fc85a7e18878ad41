#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "host/container/LumContainer.h"

// What is inside LumContainer. Private to libLum: nobody but the container's own source files includes it.

using LumContentRef = std::unique_ptr<LumContainerContent, LumContainerRelease>;

/// One position. The first alternative is the empty one; a null reference is an empty container. An integer
/// is the number that was set, of which the accessors read the lower 32 bits.
using LumContainerValue = std::variant<std::monostate, int64_t, bool, double, LumString, LumContentRef>;

/// One name with its values.
class LumContainerEntry {
public:
    explicit LumContainerEntry(std::string_view name) : name_(name) {}

    [[nodiscard]] LumContainerEntry Clone() const;

    [[nodiscard]] const std::string& Name() const { return name_; }
    [[nodiscard]] uint32_t Count() const { return hasFirst_ ? static_cast<uint32_t>(1 + rest_.size()) : 0; }
    [[nodiscard]] bool IsList() const { return isList_; }
    /// False only where no value was ever a container.
    [[nodiscard]] bool MayNest() const { return mayNest_; }

    /// `position` must be below the count.
    [[nodiscard]] const LumContainerValue& At(uint32_t position) const {
        return position == 0 ? first_ : rest_[position - 1];
    }
    [[nodiscard]] LumContainerValue& At(uint32_t position) {
        return position == 0 ? first_ : rest_[position - 1];
    }

    /// The values of all positions but the first.
    [[nodiscard]] std::span<const LumContainerValue> Rest() const { return rest_; }

    /// The place of a value that is about to be set, at `index` or kLumSingleValue.
    [[nodiscard]] LumContainerValue& Place(uint32_t index);
    void MarkNesting() { mayNest_ = true; }
    /// Drops all values.
    void Empty();

private:
    std::string name_;
    LumContainerValue first_;
    std::vector<LumContainerValue> rest_;
    bool hasFirst_ = false;
    bool isList_ = false;
    bool mayNest_ = false;
};

/// The names of one container, shared by its copies until one of them changes. Only the sole owner of a
/// reference may call what is not const, and only when IsUnshared.
class LumContainerContent {
public:
    static constexpr uint32_t kNone = 0xFFFFFFFF;

    [[nodiscard]] static LumContentRef Make();
    /// One more reference; null for null.
    [[nodiscard]] static LumContentRef Share(LumContainerContent* content) noexcept;
    /// Gives a reference back. Contents nested to any depth are destroyed without recursion.
    static void Release(LumContainerContent* content) noexcept;

    /// True where the caller's reference is the only one. Acquires what former owners did, so that their
    /// reading happens before any change that follows.
    [[nodiscard]] bool IsUnshared() const { return references_.load(std::memory_order_acquire) == 1; }
    [[nodiscard]] LumContentRef Clone() const;

    [[nodiscard]] uint32_t Count() const { return static_cast<uint32_t>(entries_.size()); }
    /// `index` must be below the count.
    [[nodiscard]] const LumContainerEntry& Entry(uint32_t index) const { return entries_[index]; }
    /// The number of the entry `name`, or kNone.
    [[nodiscard]] uint32_t Find(std::string_view name) const;

    /// The place of a value that is about to be set. `index` must be kLumSingleValue or below kMaxPositions.
    [[nodiscard]] LumContainerValue& Place(std::string_view name, uint32_t index);
    /// Puts a container where Place would put a value.
    void PlaceContainer(std::string_view name, uint32_t index, LumContentRef value);

    void Remove(uint32_t index);
    void Clear();

    /// For readers, to whom the last value of a name counts: takes the values of a name that was there before
    /// without giving up its place in the order. DropEmptied removes those that got no new value.
    void EmptyName(std::string_view name);
    void DropEmptied();

private:
    [[nodiscard]] LumContainerEntry& FindOrAdd(std::string_view name);
    [[nodiscard]] LumContainerEntry& Add(std::string_view name);
    [[nodiscard]] bool DropReference() noexcept;
    [[nodiscard]] std::size_t SlotOf(std::string_view name) const;
    void RebuildIndex();

    std::atomic<uint32_t> references_{1};
    uint32_t lastPlaced_ = 0;
    bool mayNest_ = false;
    bool hasEmptied_ = false;
    std::vector<LumContainerEntry> entries_;
    /// Open addressing: entry number + 1 at the hash of its name, 0 for a free slot. Empty while names are
    /// few.
    std::vector<uint32_t> slots_;
    LumContainerContent* nextDying_ = nullptr;
};

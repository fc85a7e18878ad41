#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
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
using LumContainerValue =
    std::variant<std::monostate, int64_t, bool, double, std::unique_ptr<LumString>, LumContentRef>;

/// The first and the last word of the names, which may overlap, are the same.
template <class Word>
[[nodiscard]] inline bool LumIsSameAtEnds(std::string_view one, std::string_view other) {
    const auto load = [](const char* from) {
        Word word = 0;
        std::memcpy(&word, from, sizeof(word));
        return word;
    };
    const std::size_t last = one.size() - sizeof(Word);
    return ((load(one.data()) ^ load(other.data())) |
            (load(one.data() + last) ^ load(other.data() + last))) == 0;
}

/// True for the lengths that nearly all names have.
[[nodiscard]] inline bool LumIsShortName(std::string_view name) {
    return name.size() >= 4 && name.size() <= 16;
}

/// Says whether two names are the same of which `one` is short. Calls nothing.
[[nodiscard]] inline bool LumIsSameShortName(std::string_view one, std::string_view other) {
    if (one.size() != other.size()) {
        return false;
    }
    return one.size() >= 8 ? LumIsSameAtEnds<uint64_t>(one, other) : LumIsSameAtEnds<uint32_t>(one, other);
}

/// One name with its values. Positions from the count on are left over from earlier use: they hold no
/// container, and a text there only lends its memory to the next one.
class LumContainerEntry {
public:
    explicit LumContainerEntry(std::string_view name) : name_(name) {}
    LumContainerEntry(const LumContainerEntry&) = delete;
    LumContainerEntry& operator=(const LumContainerEntry&) = delete;
    LumContainerEntry(LumContainerEntry&&) noexcept = default;
    LumContainerEntry& operator=(LumContainerEntry&&) noexcept = default;
    ~LumContainerEntry() = default;

    [[nodiscard]] LumContainerEntry Clone() const;

    [[nodiscard]] const std::string& Name() const { return name_; }
    void Rename(std::string_view name) { name_ = name; }
    [[nodiscard]] uint32_t Count() const { return count_; }
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
    [[nodiscard]] std::span<const LumContainerValue> Rest() const {
        return std::span(rest_).first(count_ > 0 ? count_ - 1 : 0);
    }

    /// The place of a value that is about to be set, at `index` or kLumSingleValue.
    [[nodiscard]] LumContainerValue& Place(uint32_t index);
    /// Place, where that is the next position of a list and has its memory already; null otherwise.
    [[nodiscard]] LumContainerValue* PlaceNext(uint32_t index) {
        if (!isList_ || index != count_ || index > rest_.size()) {
            return nullptr;
        }
        ++count_;
        return &At(index);
    }
    void MarkNesting() { mayNest_ = true; }
    /// Drops all values; `maxKept` positions keep their memory.
    void Empty(uint32_t maxKept);

private:
    void DropContainers(uint32_t from);

    std::string name_;
    LumContainerValue first_;
    std::vector<LumContainerValue> rest_;
    uint32_t count_ = 0;
    bool isList_ = false;
    bool mayNest_ = false;
};

/// The names of one container, shared by its copies until one of them changes. Only the sole owner of a
/// reference may call what is not const, and only when IsUnshared.
class LumContainerContent {
public:
    static constexpr uint32_t kNone = 0xFFFFFFFF;

    LumContainerContent() = default;
    LumContainerContent(const LumContainerContent&) = delete;
    LumContainerContent& operator=(const LumContainerContent&) = delete;
    ~LumContainerContent() = default;

    [[nodiscard]] static LumContentRef Make();
    /// One more reference; null for null.
    [[nodiscard]] static LumContentRef Share(LumContainerContent* content) noexcept;
    /// Gives a reference back. Contents nested to any depth are destroyed without recursion.
    static void Release(LumContainerContent* content) noexcept;

    /// True where the caller's reference is the only one. Acquires what former owners did, so that their
    /// reading happens before any change that follows.
    [[nodiscard]] bool IsUnshared() const { return references_.load(std::memory_order_acquire) == 1; }
    [[nodiscard]] LumContentRef Clone() const;

    [[nodiscard]] uint32_t Count() const { return count_; }
    /// `index` must be below the count.
    [[nodiscard]] const LumContainerEntry& Entry(uint32_t index) const { return entries_[index]; }
    /// The number of the entry `name`, or kNone.
    [[nodiscard]] uint32_t Find(std::string_view name) const;

    /// The place of a value that is about to be set. `index` must be kLumSingleValue or below kMaxPositions.
    [[nodiscard]] LumContainerValue& Place(std::string_view name, uint32_t index);
    /// Place, for lists that are filled row by row: the name is the one behind that of the last Place, and
    /// the position the next. Null where it is not so, and nothing was done.
    [[nodiscard]] LumContainerValue* PlaceNext(std::string_view name, uint32_t index) {
        const uint32_t next = lastPlaced_ + 1 < count_ ? lastPlaced_ + 1 : 0;
        if (next >= count_ || !LumIsShortName(name) || !LumIsSameShortName(name, entries_[next].Name())) {
            return nullptr;
        }
        lastPlaced_ = next;
        return entries_[next].PlaceNext(index);
    }
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
    uint32_t count_ = 0;
    uint32_t lastPlaced_ = 0;
    bool mayNest_ = false;
    bool hasEmptied_ = false;
    /// The first count_ are the names; those behind are left over from earlier use.
    std::vector<LumContainerEntry> entries_;
    /// Open addressing: entry number + 1 at the hash of its name, 0 for a free slot. Empty while names are
    /// few.
    std::vector<uint32_t> slots_;
    LumContainerContent* nextDying_ = nullptr;
};

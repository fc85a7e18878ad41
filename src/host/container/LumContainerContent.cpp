#include "host/container/internal/LumContainerContent.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <utility>

namespace {

/// Up to here comparing names one by one is faster than hashing.
constexpr uint32_t kMaxScannedNames = 16;
/// How much of a cleared container is kept for its next use.
constexpr uint32_t kMaxKeptNames = 64;
constexpr uint32_t kMaxKeptPositions = 1024;

LumContainerValue CloneValue(const LumContainerValue& value) {
    if (const auto* number = std::get_if<int64_t>(&value)) {
        return *number;
    }
    if (const auto* flag = std::get_if<bool>(&value)) {
        return *flag;
    }
    if (const auto* real = std::get_if<double>(&value)) {
        return *real;
    }
    if (const auto* text = std::get_if<std::unique_ptr<LumString>>(&value)) {
        return std::make_unique<LumString>(**text);
    }
    if (const auto* container = std::get_if<LumContentRef>(&value)) {
        return LumContainerContent::Share(container->get());
    }
    return {};
}

}  // namespace

void LumContainerRelease::operator()(LumContainerContent* content) const noexcept {
    LumContainerContent::Release(content);
}

LumContainerEntry LumContainerEntry::Clone() const {
    LumContainerEntry clone(name_);
    clone.count_ = count_;
    clone.isList_ = isList_;
    clone.mayNest_ = mayNest_;
    if (count_ > 0) {
        clone.first_ = CloneValue(first_);
        clone.rest_.reserve(count_ - 1);
    }
    for (uint32_t i = 1; i < count_; ++i) {
        clone.rest_.push_back(CloneValue(rest_[i - 1]));
    }
    return clone;
}

LumContainerValue& LumContainerEntry::Place(uint32_t index) {
    if (index == kLumSingleValue) {
        DropContainers(1);
        isList_ = false;
        count_ = 1;
        return first_;
    }
    isList_ = true;
    if (index >= count_) {
        if (index > rest_.size()) {
            rest_.resize(index);
        }
        for (; count_ < index; ++count_) {
            At(count_) = std::monostate();
        }
        ++count_;
    }
    return At(index);
}

void LumContainerEntry::Empty(uint32_t maxKept) {
    DropContainers(0);
    mayNest_ = false;
    if (rest_.size() > maxKept) {
        rest_ = std::vector<LumContainerValue>();
    }
    isList_ = false;
    count_ = 0;
}

void LumContainerEntry::DropContainers(uint32_t from) {
    for (uint32_t i = from; mayNest_ && i < count_; ++i) {
        if (std::holds_alternative<LumContentRef>(At(i))) {
            At(i) = std::monostate();
        }
    }
}

LumContentRef LumContainerContent::Make() {
    return LumContentRef(std::make_unique<LumContainerContent>().release());
}

LumContentRef LumContainerContent::Share(LumContainerContent* content) noexcept {
    if (content != nullptr) {
        content->references_.fetch_add(1, std::memory_order_relaxed);
    }
    return LumContentRef(content);
}

bool LumContainerContent::DropReference() noexcept {
    return IsUnshared() || references_.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

void LumContainerContent::Release(LumContainerContent* content) noexcept {
    LumContainerContent* dying = content->DropReference() ? content : nullptr;
    while (dying != nullptr) {
        const std::unique_ptr<LumContainerContent> current(dying);
        dying = current->nextDying_;
        for (uint32_t i = 0; current->mayNest_ && i < current->count_; ++i) {
            LumContainerEntry& entry = current->entries_[i];
            for (uint32_t k = 0; entry.MayNest() && k < entry.Count(); ++k) {
                auto* inner = std::get_if<LumContentRef>(&entry.At(k));
                LumContainerContent* const nested = inner != nullptr ? inner->release() : nullptr;
                if (nested != nullptr && nested->DropReference()) {
                    nested->nextDying_ = dying;
                    dying = nested;
                }
            }
        }
    }
}

LumContentRef LumContainerContent::Clone() const {
    LumContentRef clone = Make();
    clone->entries_.reserve(count_);
    for (uint32_t i = 0; i < count_; ++i) {
        clone->entries_.push_back(entries_[i].Clone());
    }
    clone->count_ = count_;
    clone->mayNest_ = mayNest_;
    clone->slots_ = slots_;
    return clone;
}

uint32_t LumContainerContent::Find(std::string_view name) const {
    if (!slots_.empty()) {
        return slots_[SlotOf(name)] - 1;
    }
    const bool isShort = LumIsShortName(name);
    for (uint32_t i = 0; i < count_; ++i) {
        const std::string_view other = entries_[i].Name();
        if (isShort ? LumIsSameShortName(name, other) : name == other) {
            return i;
        }
    }
    return kNone;
}

LumContainerValue& LumContainerContent::Place(std::string_view name, uint32_t index) {
    return FindOrAdd(name).Place(index);
}

void LumContainerContent::PlaceContainer(std::string_view name, uint32_t index, LumContentRef value) {
    LumContainerEntry& entry = FindOrAdd(name);
    entry.Place(index) = std::move(value);
    entry.MarkNesting();
    mayNest_ = true;
}

void LumContainerContent::Remove(uint32_t index) {
    const auto at = entries_.begin() + index;
    at->Empty(kMaxKeptPositions);
    std::rotate(at, at + 1, entries_.begin() + count_);
    --count_;
    if (entries_.size() > kMaxKeptNames) {
        entries_.erase(entries_.begin() + count_, entries_.end());
    }
    RebuildIndex();
}

void LumContainerContent::Clear() {
    for (uint32_t i = 0; i < count_; ++i) {
        entries_[i].Empty(kMaxKeptPositions);
    }
    count_ = 0;
    mayNest_ = false;
    slots_.clear();
    if (entries_.size() > kMaxKeptNames) {
        entries_ = std::vector<LumContainerEntry>();
    }
}

void LumContainerContent::EmptyName(std::string_view name) {
    const uint32_t found = Find(name);
    if (found != kNone) {
        entries_[found].Empty(0);
        hasEmptied_ = true;
    }
}

void LumContainerContent::DropEmptied() {
    if (!hasEmptied_) {
        return;
    }
    std::erase_if(entries_, [](const LumContainerEntry& entry) { return entry.Count() == 0; });
    count_ = static_cast<uint32_t>(entries_.size());
    hasEmptied_ = false;
    RebuildIndex();
}

LumContainerEntry& LumContainerContent::FindOrAdd(std::string_view name) {
    // Lists are mostly read position by position.
    if (lastPlaced_ < count_ && entries_[lastPlaced_].Name() == name) {
        return entries_[lastPlaced_];
    }
    const uint32_t found = Find(name);
    if (found == kNone) {
        return Add(name);
    }
    lastPlaced_ = found;
    return entries_[found];
}

LumContainerEntry& LumContainerContent::Add(std::string_view name) {
    const auto spares = entries_.begin() + count_;
    const auto spare = std::find_if(spares, entries_.end(),
                                    [name](const LumContainerEntry& entry) { return entry.Name() == name; });
    if (spare != entries_.end()) {
        std::iter_swap(spares, spare);
    } else if (spares != entries_.end()) {
        spares->Rename(name);
    } else {
        entries_.emplace_back(name);
    }
    lastPlaced_ = count_++;
    if (slots_.size() < 2 * static_cast<std::size_t>(count_)) {
        RebuildIndex();
    } else {
        slots_[SlotOf(name)] = count_;
    }
    return entries_[lastPlaced_];
}

/// The slot of `name`, or the free one where it would go.
std::size_t LumContainerContent::SlotOf(std::string_view name) const {
    const std::size_t mask = slots_.size() - 1;
    std::size_t slot = std::hash<std::string_view>()(name) & mask;
    while (slots_[slot] != 0 && entries_[slots_[slot] - 1].Name() != name) {
        slot = (slot + 1) & mask;
    }
    return slot;
}

void LumContainerContent::RebuildIndex() {
    slots_.clear();
    if (count_ <= kMaxScannedNames) {
        return;
    }
    slots_.resize(std::bit_ceil(std::size_t{4} * count_));
    for (uint32_t i = 0; i < count_; ++i) {
        slots_[SlotOf(entries_[i].Name())] = i + 1;
    }
}

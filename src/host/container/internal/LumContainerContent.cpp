#include "host/container/internal/LumContainerContent.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <iterator>
#include <utility>

namespace {

/// Up to here comparing names one by one is faster than hashing.
constexpr uint32_t kMaxScannedNames = 16;
/// Each growth of a list moves all its values: a short one grows fourfold, so that it does so rarely.
constexpr std::size_t kFirstRoom = 8;
constexpr std::size_t kShortList = 128;

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
    if (const auto* text = std::get_if<LumString>(&value)) {
        return *text;
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
    clone.hasFirst_ = hasFirst_;
    clone.isList_ = isList_;
    clone.mayNest_ = mayNest_;
    clone.first_ = CloneValue(first_);
    clone.rest_.reserve(rest_.size());
    std::transform(rest_.begin(), rest_.end(), std::back_inserter(clone.rest_), CloneValue);
    return clone;
}

LumContainerValue& LumContainerEntry::Place(uint32_t index) {
    hasFirst_ = true;
    isList_ = index != kLumSingleValue;
    if (!isList_) {
        rest_.clear();
        return first_;
    }
    if (index == rest_.size() + 1) {  // as lists are filled
        if (rest_.size() == rest_.capacity() && rest_.size() < kShortList) {
            rest_.reserve(std::max(kFirstRoom, 4 * rest_.size()));
        }
        return rest_.emplace_back();
    }
    if (index > rest_.size()) {
        rest_.resize(index);
    }
    return At(index);
}

void LumContainerEntry::Empty() {
    first_ = std::monostate();
    rest_.clear();
    hasFirst_ = isList_ = mayNest_ = false;
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
        for (uint32_t i = 0; current->mayNest_ && i < current->Count(); ++i) {
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
    clone->entries_.reserve(entries_.size());
    for (const LumContainerEntry& entry : entries_) {
        clone->entries_.push_back(entry.Clone());
    }
    clone->mayNest_ = mayNest_;
    clone->slots_ = slots_;
    return clone;
}

uint32_t LumContainerContent::Find(std::string_view name) const {
    if (!slots_.empty()) {
        return slots_[SlotOf(name)] - 1;
    }
    const auto found = std::find_if(entries_.begin(), entries_.end(),
                                    [name](const LumContainerEntry& entry) { return entry.Name() == name; });
    return found != entries_.end() ? static_cast<uint32_t>(found - entries_.begin()) : kNone;
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
    entries_.erase(entries_.begin() + index);
    RebuildIndex();
}

void LumContainerContent::Clear() {
    mayNest_ = false;
    slots_.clear();
    entries_.clear();
}

void LumContainerContent::EmptyName(std::string_view name) {
    const uint32_t found = Find(name);
    if (found != kNone) {
        entries_[found].Empty();
        hasEmptied_ = true;
    }
}

void LumContainerContent::DropEmptied() {
    if (!hasEmptied_) {
        return;
    }
    std::erase_if(entries_, [](const LumContainerEntry& entry) { return entry.Count() == 0; });
    hasEmptied_ = false;
    RebuildIndex();
}

LumContainerEntry& LumContainerContent::FindOrAdd(std::string_view name) {
    // Lists are mostly filled row by row.
    const uint32_t next = lastPlaced_ + 1 < Count() ? lastPlaced_ + 1 : 0;
    const bool isNext = next < Count() && entries_[next].Name() == name;
    const uint32_t found = isNext ? next : Find(name);
    if (found == kNone) {
        return Add(name);
    }
    lastPlaced_ = found;
    return entries_[found];
}

LumContainerEntry& LumContainerContent::Add(std::string_view name) {
    lastPlaced_ = Count();
    entries_.emplace_back(name);
    if (slots_.size() < 2 * entries_.size()) {
        RebuildIndex();
    } else {
        slots_[SlotOf(name)] = Count();
    }
    return entries_.back();
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
    if (Count() <= kMaxScannedNames) {
        return;
    }
    slots_.resize(std::bit_ceil(4 * entries_.size()));
    for (uint32_t i = 0; i < Count(); ++i) {
        slots_[SlotOf(entries_[i].Name())] = i + 1;
    }
}

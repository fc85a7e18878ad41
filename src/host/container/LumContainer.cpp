#include "host/container/LumContainer.h"

#include <cmath>
#include <utility>
#include <vector>

#include "host/container/internal/LumContainerContent.h"

namespace {

const LumContainerEntry* FindEntry(const LumContainerContent* content, const LumString& name) {
    const uint32_t found = content != nullptr ? content->Find(name.View()) : LumContainerContent::kNone;
    return found != LumContainerContent::kNone ? &content->Entry(found) : nullptr;
}

/// The value of kind T that is to be read, or null.
template <class T>
const T* FindValue(const LumContainerContent* content, const LumString& name, uint32_t index) {
    const LumContainerEntry* const entry = FindEntry(content, name);
    const uint32_t position = index == kLumSingleValue ? 0 : index;
    return entry != nullptr && position < entry->Count() ? std::get_if<T>(&entry->At(position)) : nullptr;
}

template <class T>
bool CopyValue(const T* found, T& value) {
    if (found == nullptr) {
        return false;
    }
    value = *found;
    return true;
}

/// The lower 32 bits.
template <class T>
bool CopyNumber(const int64_t* found, T& value) {
    if (found == nullptr) {
        return false;
    }
    value = static_cast<T>(*found);
    return true;
}

bool IsSettable(uint32_t index) {
    return index < LumContainer::kMaxPositions || index == kLumSingleValue;
}

struct Pair {
    const LumContainerContent* one;
    const LumContainerContent* other;
};

uint32_t CountOf(const LumContainerContent* content) {
    return content != nullptr ? content->Count() : 0;
}

/// Compares two values; a pair of containers is put off to `later` and counts as the same.
bool IsSame(const LumContainerValue& one, const LumContainerValue& other, std::vector<Pair>& later) {
    if (one.index() != other.index()) {
        return false;
    }
    if (const auto* number = std::get_if<int64_t>(&one)) {
        return static_cast<uint32_t>(*number) == static_cast<uint32_t>(std::get<int64_t>(other));
    }
    if (const auto* flag = std::get_if<bool>(&one)) {
        return *flag == std::get<bool>(other);
    }
    if (const auto* real = std::get_if<double>(&one)) {
        const double second = std::get<double>(other);
        return *real == second || (std::isnan(*real) && std::isnan(second));
    }
    if (const auto* text = std::get_if<LumString>(&one)) {
        return *text == std::get<LumString>(other);
    }
    if (const auto* container = std::get_if<LumContentRef>(&one)) {
        later.push_back({container->get(), std::get<LumContentRef>(other).get()});
    }
    return true;
}

bool IsSame(const LumContainerEntry& one, const LumContainerEntry& other, std::vector<Pair>& later) {
    bool same = one.Name() == other.Name() && one.IsList() == other.IsList() && one.Count() == other.Count();
    for (uint32_t i = 0; same && i < one.Count(); ++i) {
        same = IsSame(one.At(i), other.At(i), later);
    }
    return same;
}

}  // namespace

LumContainer::LumContainer() noexcept = default;

LumContainer::LumContainer(const LumContainer& other) noexcept
    : content_(LumContainerContent::Share(other.content_.get())) {}

LumContainer::LumContainer(LumContainer&& other) noexcept : content_(std::move(other.content_)) {
    other.walked_ = 0;
}

LumContainer& LumContainer::operator=(const LumContainer& other) noexcept {
    content_ = LumContainerContent::Share(other.content_.get());
    walked_ = 0;
    return *this;
}

LumContainer& LumContainer::operator=(LumContainer&& other) noexcept {
    content_ = std::move(other.content_);
    walked_ = 0;
    other.walked_ = 0;
    return *this;
}

LumContainer::~LumContainer() = default;

void LumContainer::Clear() {
    walked_ = 0;
    if (content_ != nullptr && content_->IsUnshared()) {
        content_->Clear();
    } else {
        content_.reset();
    }
}

void LumContainer::ClearName(const LumString& name) {
    if (Contains(name)) {
        const ContentRef replaced = Own();
        content_->Remove(content_->Find(name.View()));
    }
}

bool LumContainer::GetNextName(LumString& name) {
    if (!GetNameAt(walked_, name)) {
        walked_ = 0;
        return false;
    }
    ++walked_;
    return true;
}

uint32_t LumContainer::CountNames() const {
    return CountOf(content_.get());
}

bool LumContainer::GetNameAt(uint32_t index, LumString& name) const {
    if (index >= CountNames()) {
        return false;
    }
    name.Clear();
    name.Append(std::string_view(content_->Entry(index).Name()));
    return true;
}

bool LumContainer::Contains(const LumString& name) const {
    return FindEntry(content_.get(), name) != nullptr;
}

uint32_t LumContainer::CountValues(const LumString& name) const {
    const LumContainerEntry* const entry = FindEntry(content_.get(), name);
    uint32_t count = 0;
    for (uint32_t i = 0; entry != nullptr && i < entry->Count(); ++i) {
        count += std::holds_alternative<std::monostate>(entry->At(i)) ? 0U : 1U;
    }
    return count;
}

uint32_t LumContainer::CountPositions(const LumString& name) const {
    const LumContainerEntry* const entry = FindEntry(content_.get(), name);
    return entry != nullptr ? entry->Count() : 0;
}

bool LumContainer::IsList(const LumString& name) const {
    const LumContainerEntry* const entry = FindEntry(content_.get(), name);
    return entry != nullptr && entry->IsList();
}

bool LumContainer::GetString(const LumString& name, LumString& value, uint32_t index) const {
    return CopyValue(FindString(name, index), value);
}

bool LumContainer::GetInt32(const LumString& name, int32_t& value, uint32_t index) const {
    return CopyNumber(FindValue<int64_t>(content_.get(), name, index), value);
}

bool LumContainer::GetInt32(const LumString& name, uint32_t& value, uint32_t index) const {
    return CopyNumber(FindValue<int64_t>(content_.get(), name, index), value);
}

bool LumContainer::GetBool(const LumString& name, bool& value, uint32_t index) const {
    return CopyValue(FindValue<bool>(content_.get(), name, index), value);
}

bool LumContainer::GetDouble(const LumString& name, double& value, uint32_t index) const {
    return CopyValue(FindValue<double>(content_.get(), name, index), value);
}

bool LumContainer::GetContainer(const LumString& name, LumContainer& value, uint32_t index) const {
    const auto* const found = FindValue<LumContentRef>(content_.get(), name, index);
    if (found == nullptr) {
        return false;
    }
    value.content_ = LumContainerContent::Share(found->get());
    value.walked_ = 0;
    return true;
}

const LumString* LumContainer::FindString(const LumString& name, uint32_t index) const {
    return FindValue<LumString>(content_.get(), name, index);
}

template <class Value>
bool LumContainer::Set(const LumString& name, uint32_t index, Value value) {
    if (!IsSettable(index)) {
        return false;
    }
    const ContentRef replaced = Own();
    content_->Place(name.View(), index) = std::move(value);
    return true;
}

bool LumContainer::SetString(const LumString& name, const LumString& value, uint32_t index) {
    return Set(name, index, LumString(value));  // copied first: it may lie in this container
}

bool LumContainer::SetInt32(const LumString& name, int32_t value, uint32_t index) {
    return Set(name, index, int64_t{value});
}

bool LumContainer::SetInt32(const LumString& name, uint32_t value, uint32_t index) {
    return Set(name, index, int64_t{value});
}

bool LumContainer::SetBool(const LumString& name, bool value, uint32_t index) {
    return Set(name, index, value);
}

bool LumContainer::SetDouble(const LumString& name, double value, uint32_t index) {
    return Set(name, index, value);
}

bool LumContainer::SetContainer(const LumString& name, const LumContainer& value, uint32_t index) {
    return SetContainer(name, LumContainer(value), index);
}

bool LumContainer::SetContainer(const LumString& name, LumContainer&& value, uint32_t index) {
    if (!IsSettable(index)) {
        return false;
    }
    LumContainer taken(std::move(value));
    const ContentRef replaced = Own();
    content_->PlaceContainer(name.View(), index, std::move(taken.content_));
    return true;
}

bool LumContainer::operator==(const LumContainer& other) const {
    std::vector<Pair> pending{{content_.get(), other.content_.get()}};
    while (!pending.empty()) {
        const Pair pair = pending.back();
        pending.pop_back();
        if (pair.one == pair.other) {
            continue;
        }
        const uint32_t count = CountOf(pair.one);
        if (count != CountOf(pair.other)) {
            return false;
        }
        for (uint32_t i = 0; i < count; ++i) {
            if (!IsSame(pair.one->Entry(i), pair.other->Entry(i), pending)) {
                return false;
            }
        }
    }
    return true;
}

LumContainer::ContentRef LumContainer::Own() {
    walked_ = 0;
    if (content_ == nullptr) {
        content_ = LumContainerContent::Make();
    } else if (!content_->IsUnshared()) {
        return std::exchange(content_, content_->Clone());
    }
    return nullptr;
}

#include "host/collection/NodeList.h"

void NodeList::AddEntry(void* entry) {
    const LumOptionalMutexLock guard(locked_ ? &mutex_ : nullptr);
    entries_.push_back(entry);
}

void* NodeList::RemoveEntry(uint32_t index) {
    const LumOptionalMutexLock guard(locked_ ? &mutex_ : nullptr);
    if (index == 0 || index > entries_.size()) {
        return nullptr;
    }
    const auto place = entries_.begin() + static_cast<std::ptrdiff_t>(index - 1);
    void* const entry = *place;
    entries_.erase(place);
    return entry;
}

uint32_t NodeList::GetCount() const {
    const LumOptionalMutexLock guard(locked_ ? &mutex_ : nullptr);
    return static_cast<uint32_t>(entries_.size());
}

#include "alerts/AlertGapTable.h"

#include <memory>
#include <new>

uint32_t* AlertGapTable_t::Times::Find(uint32_t objectId) {
    if (objectId == firstObject) {
        return &firstTime;
    }
    return others != nullptr ? others->Find(objectId) : nullptr;
}

void AlertGapTable_t::Times::Insert(uint32_t objectId, uint32_t time) {
    if (others == nullptr) {
        others.reset(new (std::nothrow) TimesByObject(kInitialBuckets, kMaximumLoad, kGrowth));
    }
    if (others != nullptr) {
        others->Insert({}, objectId, time);
    }
}

namespace {

bool IsWithinGap(uint32_t last, uint32_t time, uint32_t gapMinutes) {
    return last + gapMinutes * 60 > time;
}

}  // namespace

bool AlertGapTable_t::HoldsBack(const LumString& text, uint32_t objectId, uint32_t time,
                                uint32_t gapMinutes) {
    Times* const times = timesByText_.Find(HashText(text.View()));
    const uint32_t* const last = times != nullptr ? times->Find(objectId) : nullptr;
    return last != nullptr && IsWithinGap(*last, time, gapMinutes);
}

bool AlertGapTable_t::LetThrough(const LumString& text, uint32_t objectId, uint32_t time,
                                 uint32_t gapMinutes) {
    // An alert that there is no memory to remember by passes all the same.
    const uint32_t key = HashText(text.View());
    Times* const times = timesByText_.Find(key);
    if (times == nullptr) {
        timesByText_.Insert(text.View(), key, Times{objectId, time, nullptr});
        return true;
    }
    uint32_t* const last = times->Find(objectId);
    if (last == nullptr) {
        times->Insert(objectId, time);
        return true;
    }
    if (IsWithinGap(*last, time, gapMinutes)) {
        return false;
    }
    *last = time;
    return true;
}

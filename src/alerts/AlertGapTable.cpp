#include "alerts/AlertGapTable.h"

#include <memory>

bool AlertGapTable_t::LetThrough(const LumString& text, uint32_t objectId, uint32_t time,
                                 uint32_t gapMinutes) {
    const uint32_t key = HashText(text.View());
    std::unique_ptr<TimesByObject>* objects = objectsByText_.Find(key);
    if (objects == nullptr) {
        objects = objectsByText_.Insert(
            text.View(), key, std::make_unique<TimesByObject>(kInitialBuckets, kMaximumLoad, kGrowth));
    }
    if (objects == nullptr) {
        return true;  // no memory to remember it by is no reason to hold an alert back
    }
    uint32_t* const last = (*objects)->Find(objectId);
    if (last == nullptr) {
        (*objects)->Insert({}, objectId, time);
        return true;
    }
    if (*last + gapMinutes * 60 > time) {
        return false;
    }
    *last = time;
    return true;
}

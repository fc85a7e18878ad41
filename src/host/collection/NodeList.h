#pragma once

#include <cstdint>
#include <deque>

#include "host/text/LumApi.h"
#include "host/thread/LumMutex.h"

/// A first-in, first-out list of pointers that it does not own.
class LUM_API NodeList {
public:
    NodeList() = default;
    NodeList(const NodeList&) = delete;
    NodeList& operator=(const NodeList&) = delete;
    ~NodeList() = default;

    /// With `enable` every operation below locks the list. To be called before the list is shared.
    void SetMtSafeEnable(bool enable) { locked_ = enable; }

    void AddEntry(void* entry);
    /// Takes the entry at `index`, counted from 1, out and returns it; null where there is none.
    [[nodiscard]] void* RemoveEntry(uint32_t index);
    [[nodiscard]] uint32_t GetCount() const;

private:
    bool locked_ = false;
    mutable LumMutex mutex_;
    std::deque<void*> entries_;
};

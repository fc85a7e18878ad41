#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "host/collection/LumVector.h"
#include "host/thread/LumMutex.h"

/// A map that keeps its entries sorted by key in one vector, so that a place between 0 and the count is as
/// good a handle as a key. Keys are compared with `<` alone. With locking on, every single operation holds
/// the map's own mutex; what takes several operations is the caller's to guard.
template <class Key, class Value>
class LumMap {
public:
    struct KeyValuePair {
        Key key;
        Value value;
    };

    /// Gives the map its mutex. To be called before the map is shared, as it cannot guard its own making.
    void EnableLocking() { mutex_ = std::make_unique<LumMutex>(); }

    /// The place of `key`, or -1.
    [[nodiscard]] int32_t Find(const Key& key) const {
        const LumOptionalMutexLock guard(mutex_.get());
        return FindPlace(key);
    }

    /// Inserts `value` under `key` at its sorted place, or overwrites the value that is there.
    void Set(const Key& key, Value value) {
        const LumOptionalMutexLock guard(mutex_.get());
        uint32_t place = 0;
        const int32_t found = FindPlace(key, &place);
        if (found >= 0) {
            entries_[static_cast<uint32_t>(found)].value = std::move(value);
        } else {
            Insert(place, key, std::move(value));
        }
    }

    /// Inserts `value` unless `key` is there, under one lock; says whether it did. `value` is moved from only
    /// then.
    [[nodiscard]] bool SetIfAbsent(const Key& key, Value&& value) {
        const LumOptionalMutexLock guard(mutex_.get());
        uint32_t place = 0;
        if (FindPlace(key, &place) >= 0) {
            return false;
        }
        Insert(place, key, std::move(value));
        return true;
    }

    /// Copies the value of `key` out; false, and `value` untouched, where there is none.
    [[nodiscard]] bool Get(const Key& key, Value& value) const {
        const LumOptionalMutexLock guard(mutex_.get());
        const int32_t found = FindPlace(key);
        if (found < 0) {
            return false;
        }
        value = entries_[static_cast<uint32_t>(found)].value;
        return true;
    }

    /// Copies the value at place `index` in key order out; false, and `value` untouched, at or after the
    /// count.
    [[nodiscard]] bool GetAt(uint32_t index, Value& value) const {
        const LumOptionalMutexLock guard(mutex_.get());
        if (index >= entries_.GetCount()) {
            return false;
        }
        value = entries_[index].value;
        return true;
    }

    /// Takes the entry of `key` out and returns its value, or nothing where there is none. The value is
    /// destroyed by the caller, so never under the lock.
    [[nodiscard]] std::optional<Value> Remove(const Key& key) {
        const LumOptionalMutexLock guard(mutex_.get());
        const int32_t found = FindPlace(key);
        return found < 0 ? std::nullopt : std::optional<Value>(Take(static_cast<uint32_t>(found)));
    }

    /// Gives all values up, in the order of their keys.
    void Clear() {
        const LumOptionalMutexLock guard(mutex_.get());
        for (uint32_t i = 0; i < entries_.GetCount(); ++i) {
            entries_[i].value = Value();
        }
        while (entries_.GetCount() > 0) {
            entries_.RemoveAt(entries_.GetCount() - 1);
        }
    }

    [[nodiscard]] uint32_t GetCount() const {
        const LumOptionalMutexLock guard(mutex_.get());
        return entries_.GetCount();
    }

private:
    /// The place of `key`, or -1; then `insertAt` is where it would go.
    [[nodiscard]] int32_t FindPlace(const Key& key, uint32_t* insertAt = nullptr) const {
        int32_t low = 0;
        int32_t high = static_cast<int32_t>(entries_.GetCount()) - 1;
        while (low <= high) {
            const int32_t middle = (low + high) / 2;
            const Key& entry = entries_[static_cast<uint32_t>(middle)].key;
            if (entry < key) {
                low = middle + 1;
            } else if (key < entry) {
                high = middle - 1;
            } else {
                return middle;
            }
        }
        if (insertAt != nullptr) {
            *insertAt = static_cast<uint32_t>(low);
        }
        return -1;
    }

    void Insert(uint32_t place, const Key& key, Value value) {
        entries_.InsertAt(place, std::make_unique<KeyValuePair>(KeyValuePair{key, std::move(value)}));
    }

    Value Take(uint32_t index) {
        Value value = std::move(entries_[index].value);
        entries_.RemoveAt(index);
        return value;
    }

    std::unique_ptr<LumMutex> mutex_;
    LumVector<KeyValuePair> entries_;
};

#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

/// A growing array that owns its entries. Each entry is allocated on its own, so its address stays the same
/// while others come and go. The first kInnerSlots places lie inside the object, so that a small vector has
/// no array of its own. Not locked: the owner sees to that.
template <class T>
class LumVector {
public:
    static constexpr uint32_t kInnerSlots = 10;

    LumVector() noexcept = default;
    LumVector(const LumVector&) = delete;
    LumVector& operator=(const LumVector&) = delete;
    ~LumVector() {
        while (count_ > 0) {
            RemoveAt(count_ - 1);
        }
    }

    [[nodiscard]] uint32_t GetCount() const noexcept { return count_; }
    /// Number of places before the next growth; at least kInnerSlots.
    [[nodiscard]] uint32_t GetCapacity() const noexcept { return capacity_; }

    /// The entry at `index`, still owned by the vector. `index` must be below the count.
    [[nodiscard]] T& operator[](uint32_t index) noexcept { return *slots_[index]; }
    [[nodiscard]] const T& operator[](uint32_t index) const noexcept { return *slots_[index]; }

    /// Puts `entry` before the one at `index`; the count appends. `index` must not lie above the count.
    void InsertAt(uint32_t index, std::unique_ptr<T> entry) {
        Reserve(count_ + 1);
        std::move_backward(slots_ + index, slots_ + count_, slots_ + count_ + 1);
        slots_[index] = entry.release();
        ++count_;
    }

    void Append(std::unique_ptr<T> entry) { InsertAt(count_, std::move(entry)); }

    /// Destroys the entry at `index`, which must be below the count, and closes the gap.
    void RemoveAt(uint32_t index) noexcept {
        const std::unique_ptr<T> removed(slots_[index]);
        std::move(slots_ + index + 1, slots_ + count_, slots_ + index);
        --count_;
        Shrink();
    }

private:
    void Reserve(uint32_t needed) {
        if (needed > capacity_) {
            MoveTo(std::max(needed, capacity_ * 2));
        }
    }

    void Shrink() noexcept {
        const uint32_t wanted = std::max(count_, kInnerSlots);
        if (capacity_ > kInnerSlots && capacity_ > 3 * count_) {
            MoveTo(wanted);
        }
    }

    void MoveTo(uint32_t capacity) {
        std::unique_ptr<T*[]> larger = capacity > kInnerSlots ? std::make_unique<T*[]>(capacity) : nullptr;
        T** to = larger != nullptr ? larger.get() : inner_.data();
        std::copy(slots_, slots_ + count_, to);
        slots_ = to;
        outer_ = std::move(larger);
        capacity_ = capacity;
    }

    std::array<T*, kInnerSlots> inner_{};
    std::unique_ptr<T*[]> outer_;
    T** slots_ = inner_.data();
    uint32_t count_ = 0;
    uint32_t capacity_ = kInnerSlots;
};

#pragma once

#include <cstddef>
#include <cstdint>

/// While it lives, the blocks of memory that the program asks for are counted, and one of them cannot be had.
/// One at a time, and in programs that are linked with memory_fault alone: that is their allocator.
class MemoryFault {
public:
    /// The block that fails is the `turn`th, none with 0; of blocks of `size` bytes alone, where that is not
    /// 0.
    explicit MemoryFault(uint64_t turn, std::size_t size = 0);
    MemoryFault(const MemoryFault&) = delete;
    MemoryFault& operator=(const MemoryFault&) = delete;
    ~MemoryFault();

    /// How many blocks were asked for, those of the size alone where there is one.
    [[nodiscard]] static uint64_t Count();
    /// The size of the largest of them.
    [[nodiscard]] static std::size_t LargestSize();
};

#include "support/MemoryFault.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> armed{false};
std::atomic<std::size_t> watchedSize{0};
std::atomic<uint64_t> failingTurn{0};
std::atomic<uint64_t> count{0};
std::atomic<std::size_t> largestSize{0};

bool IsTheOne(std::size_t size) {
    if (!armed || (watchedSize != 0 && size != watchedSize)) {
        return false;
    }
    if (size > largestSize) {
        largestSize = size;
    }
    return ++count == failingTurn;
}

}  // namespace

// Inlined, the two halves of a pair would look to the compiler as if they did not belong together.
[[gnu::noinline]] void* operator new(std::size_t size) {
    void* const memory = IsTheOne(size) ? nullptr : std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

MemoryFault::MemoryFault(uint64_t turn, std::size_t size) {
    watchedSize = size;
    failingTurn = turn;
    count = 0;
    largestSize = 0;
    armed = true;
}

MemoryFault::~MemoryFault() {
    armed = false;
}

uint64_t MemoryFault::Count() {
    return count;
}

std::size_t MemoryFault::LargestSize() {
    return largestSize;
}

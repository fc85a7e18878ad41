#include "host/database/DatabaseFigures.h"

#include <atomic>

#include "host/database/internal/DatabaseFigures.h"

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

std::atomic<uint64_t> statements{0};
std::atomic<uint64_t> failures{0};
std::atomic<uint64_t> syncs{0};
std::atomic<uint64_t> syncedChanges{0};

}  // namespace

void CountStatement(bool succeeded) {
    statements.fetch_add(1, kRelaxed);
    if (!succeeded) {
        failures.fetch_add(1, kRelaxed);
    }
}

void CountSync(uint64_t changes) {
    syncs.fetch_add(1, kRelaxed);
    syncedChanges.fetch_add(changes, kRelaxed);
}

DBFigures DBReadFigures() {
    return {statements.load(kRelaxed), failures.load(kRelaxed), syncs.load(kRelaxed),
            syncedChanges.load(kRelaxed)};
}

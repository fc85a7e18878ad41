#include "fleet/service/Backoff.h"

#include <algorithm>

int64_t Backoff::Next() {
    const int64_t bound = boundMs_;
    boundMs_ = std::min(boundMs_ * 2, lastMs_);
    constexpr int64_t leastPart = 10;
    return std::uniform_int_distribution<int64_t>(firstMs_ / leastPart, bound)(random_);
}

uint64_t RandomSeed() {
    std::random_device device;
    return (static_cast<uint64_t>(device()) << 32U) | device();
}

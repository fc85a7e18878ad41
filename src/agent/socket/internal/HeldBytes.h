#pragma once

#include <atomic>
#include <cstddef>

/// How many bytes of memory are held for clients, against one limit for all of them. Changed by one thread,
/// read by any.
class HeldBytes {
public:
    explicit HeldBytes(std::size_t limit) : limit_(limit) {}

    [[nodiscard]] std::size_t Get() const { return total_.load(std::memory_order_relaxed); }

    /// What one client holds. The first few bytes of each are free, so that a small request is served however
    /// much the others hold.
    class Share {
    public:
        static constexpr std::size_t kFree = std::size_t{8} << 10U;

        explicit Share(HeldBytes& all) : all_(all) {}
        Share(const Share&) = delete;
        Share& operator=(const Share&) = delete;
        ~Share() { static_cast<void>(Set(0)); }

        /// Says that the client holds `bytes` from now on. False, and nothing changed, where that would be
        /// more than the limit of all.
        [[nodiscard]] bool Set(std::size_t bytes) {
            const std::size_t counted = bytes > kFree ? bytes - kFree : 0;
            const std::size_t others = all_.Get() - counted_;
            if (counted > counted_ && others + counted > all_.limit_) {
                return false;
            }
            counted_ = counted;
            all_.total_.store(others + counted, std::memory_order_relaxed);
            return true;
        }

    private:
        HeldBytes& all_;
        std::size_t counted_ = 0;
    };

private:
    const std::size_t limit_;
    std::atomic<std::size_t> total_{0};
};

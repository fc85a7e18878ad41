#pragma once

#include <chrono>
#include <thread>

/// Waits until `condition()` is true; false where that takes longer than any sane machine needs.
template <class Condition>
[[nodiscard]] bool WaitFor(Condition condition, std::chrono::seconds patience = std::chrono::seconds(30)) {
    const auto until = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > until) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

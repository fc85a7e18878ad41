#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

/// Does with `size` bytes what the target is about, and ends the process where a rule is broken. Called any
/// number of times.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

inline std::string_view FuzzInput(const uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// A rule that holds for every input.
inline void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

#pragma once

#include <cstdint>
#include <utility>

#include "host/container/LumContainer.h"

/// What the handlers of all modules have in common: statuses, and where arguments and answers stand.

inline constexpr uint32_t kActionDone = 0;      ///< the answer, if any, is in the container
inline constexpr uint32_t kActionFailed = 1;    ///< failed while doing the work
inline constexpr uint32_t kActionRefused = 13;  ///< an argument, or what it names, is missing

/// The sub-container of an action's arguments, and of an answer that has the same shape.
inline constexpr const char* kActionValues = "Values";
/// The sub-container of any other answer.
inline constexpr const char* kActionResult = "Result";

/// Runs `body(const LumContainer& values, LumContainer& answer) -> status` on the arguments in `container`. A
/// missing container, or one without "Values", is refused. After kActionDone the container holds the answer
/// and nothing of the arguments; after any other status it is as it was.
template <class Body>
[[nodiscard]] uint32_t ActionWithValues(LumContainer* container, Body&& body) {
    LumContainer values;
    if (container == nullptr || !container->GetContainer(kActionValues, values)) {
        return kActionRefused;
    }
    LumContainer answer;
    const uint32_t status = std::forward<Body>(body)(std::as_const(values), answer);
    if (status == kActionDone) {
        *container = std::move(answer);
    }
    return status;
}

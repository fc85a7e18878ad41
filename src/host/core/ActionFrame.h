#pragma once

#include <cstdint>
#include <utility>

#include "contract/ContainerKeys.h"
#include "contract/Statuses.h"
#include "host/container/LumContainer.h"

/// What the handlers of all modules have in common: where arguments and answers stand.

/// Runs `body(const LumContainer& values, LumContainer& answer) -> status` on the arguments in `container`. A
/// missing container, or one without "Values", is refused. After kActionDone the container holds the answer
/// and nothing of the arguments; after any other status it is as it was.
template <class Body>
[[nodiscard]] uint32_t ActionWithValues(LumContainer* container, Body&& body) {
    LumContainer values;
    if (container == nullptr || !container->GetContainer(keys::kValues, values)) {
        return kActionRefused;
    }
    LumContainer answer;
    const uint32_t status = std::forward<Body>(body)(std::as_const(values), answer);
    if (status == kActionDone) {
        *container = std::move(answer);
    }
    return status;
}

#pragma once

#include <cstdint>
#include <utility>

#include "contract/ContainerKeys.h"
#include "contract/Statuses.h"
#include "host/container/LumContainer.h"
#include "host/database/Database.h"

/// What the handlers of all modules have in common: where arguments and answers stand.

/// Waits until what this thread changed in a database is durable, unless a DBDurabilityDelay leaves that to
/// the caller. Returns `status`, or kActionFailed where that was kActionDone and a sync failed.
[[nodiscard]] inline uint32_t AfterDurable(uint32_t status) {
    if (!DBDurabilityDelay::IsActive()) {
        DBAwaitDurable();
    }
    const bool durable = DBTakeDurable();
    return status == kActionDone && !durable ? kActionFailed : status;
}

/// Runs `body(const LumContainer& values, LumContainer& answer) -> status` on the arguments in `container`. A
/// missing container, or one without "Values", is refused. After kActionDone what the body changed in a
/// database is durable, and the container holds the answer and nothing of the arguments; after any other
/// status the container is as it was.
template <class Body>
[[nodiscard]] uint32_t ActionWithValues(LumContainer* container, Body&& body) {
    LumContainer values;
    if (container == nullptr || !container->GetContainer(keys::kValues, values)) {
        return kActionRefused;
    }
    LumContainer answer;
    const uint32_t status = AfterDurable(std::forward<Body>(body)(std::as_const(values), answer));
    if (status == kActionDone) {
        *container = std::move(answer);
    }
    return status;
}

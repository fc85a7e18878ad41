#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "host/core/ActionFrame.h"
#include "host/log/LumDebug.h"
#include "model/ModelArguments.h"
#include "model/ModuleLog.h"
#include "tasks/Task.h"

/// What the two actions that queue a task share: finds the model that the arguments name and pushes what
/// `makeTask(const Model_t&, const LumContainer& values)` makes. The routine names itself in its messages.
/// The work itself is done later, on the processor thread; the caller is not told how it ends.
template <class MakeTaskFor>
uint32_t QueueTaskAction(LumContainer* container, const LumRoutine& routine, MakeTaskFor&& makeTask) {
    routine.Trace("Entering");
    return ActionWithValues(container, [&](const LumContainer& values, LumContainer& /*answer*/) {
        const std::shared_ptr<Model_t> model = FindNamedModel(values, routine);
        if (model == nullptr) {
            return kActionRefused;
        }
        TaskQueue.Push(makeTask(std::as_const(*model), values));
        return kActionDone;
    });
}

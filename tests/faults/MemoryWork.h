#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "MemoryMachine.h"

/// A piece of work that is done without one of its blocks of memory.
struct Work {
    const char* name;
    /// Does it on a machine whose module has started, without the `turn`th block, and checks what came of it.
    std::function<void(const Machine& machine, uint64_t turn)> run;
    /// False for what starts the module itself.
    bool onStarted = true;
};

/// The fourteen actions, an error line, the tasks, a turn of the scheduler, and the ways of a module through
/// its life.
[[nodiscard]] std::vector<Work> AllWork();

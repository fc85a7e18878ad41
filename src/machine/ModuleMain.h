#pragma once

#include <cstdint>

/// The module's one entry point; the commands are those of host/core/ModuleInterface.h. Answers 1, or 5 for a
/// command that it does not know. What goes wrong is told by the log alone. Called on the host's thread.
extern "C" __attribute__((visibility("default"))) uint32_t ModuleMain(uint32_t command, uint32_t word,
                                                                      void* pointer);

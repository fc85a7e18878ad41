#pragma once

#include "agent/CommandLine.h"

/// Runs the agent until it is told to stop by SIGTERM or SIGINT, and returns the exit status of the
/// process: 0 after an orderly end, 1 where it could not start (the log says why). To be called once, on the
/// main thread, before there is any other.
[[nodiscard]] int RunAgent(const CommandLine& commandLine);

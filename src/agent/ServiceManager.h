#pragma once

#include <chrono>
#include <optional>

#include "host/text/LumString.h"

/// Tells the service manager that started this process, if one asked for it with the environment variable
/// NOTIFY_SOCKET, what state it is in: "READY=1" or "STOPPING=1" (sd_notify(3)). Nobody needs the answer, so
/// a failure is silent. May be called from any thread.
void NotifyServiceManager(const char* state);

/// Tells it that a start or a stop is still under way, and what is being done (`phrase`): it then waits
/// longer.
void ExtendServiceTimeout(const LumString& phrase);

/// How often the service manager wants to hear that the process works (WATCHDOG_USEC), less a margin; nothing
/// where it does not.
[[nodiscard]] std::optional<std::chrono::milliseconds> WatchdogPeriod();

#pragma once

/// Tells the service manager that started this process, if one asked for it with the environment variable
/// NOTIFY_SOCKET, what state it is in: "READY=1" or "STOPPING=1" (sd_notify(3)). Nobody needs the answer, so
/// a failure is silent.
void NotifyServiceManager(const char* state);

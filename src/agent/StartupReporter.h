#pragma once

#include "host/log/LumDebug.h"

/// Gives the routines of LumStartup.h their effect: what a module reports goes to the service manager and,
/// every few seconds, to the log; whether to stop is what the signals say. `debug` must outlive every module.
void ReportStartupTo(LumDebug& debug);

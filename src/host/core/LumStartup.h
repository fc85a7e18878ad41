#pragma once

#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// What a module's long start (commands 1, 3 and 4) has to say and to ask. Every routine may be called from
/// any thread.

/// Says that the work goes on, as a phrase such as "checking the database, 40 %". To be called every few
/// seconds at least: the agent passes it on to the service manager, which else takes a long start for a hung
/// one, and to the log. Does nothing where there is no agent.
LUM_API void LumStartupReport(const LumString& phrase);

/// True once the agent was told to stop: a start that lasts is to give up within seconds, so that what it has
/// begun is whole or rolled back. Cheap enough for the inside of a loop that does real work.
[[nodiscard]] LUM_API bool LumStopRequested();

/// What the two routines above call; set by the agent before it loads a module. Null for neither.
struct LumStartupHost {
    void (*report)(const LumString& phrase) = nullptr;
    bool (*isStopRequested)() = nullptr;
};
LUM_API void LumStartupSetHost(const LumStartupHost& host);

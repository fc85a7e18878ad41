#pragma once

#include "host/log/LumDebug.h"

/// The module's logger. It is the first of the module's objects to be made and the last to go, so every other
/// one may write to it at any time.
extern LumDebug ModuleDebug;

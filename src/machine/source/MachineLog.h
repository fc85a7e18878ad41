#pragma once

#include "host/log/LumDebug.h"

/// The module's logger. Lives from the loading of the library to its unloading.
extern LumDebug MachineDebug;

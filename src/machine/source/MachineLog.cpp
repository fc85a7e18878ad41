#include "machine/source/MachineLog.h"

LumDebug MachineDebug("MachineEvents", "Machine events module (MachineEventsModule)");

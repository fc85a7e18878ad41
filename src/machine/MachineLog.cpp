#include "machine/MachineLog.h"

LumDebug MachineDebug("MachineEvents", "Machine events module (MachineEventsModule)");

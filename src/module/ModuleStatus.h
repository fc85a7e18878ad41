#pragma once

/// What the module adds to /status and /metrics, and takes away again. Both belong to the thread of the
/// module's commands.
void BeginModuleStatus();
void EndModuleStatus();

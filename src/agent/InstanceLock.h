#pragma once

#include "host/file/FileDescriptor.h"
#include "host/text/LumString.h"

/// Keeps a second agent out of a data directory: an advisory lock on the file agent.lock there, which holds
/// the agent's process number. The system drops the lock when the process ends, however it ends.
class InstanceLock {
public:
    /// Takes the lock. False, with the reason in `error`, where another agent has it or the file cannot be
    /// opened. `dataDirectory` ends with a separator.
    [[nodiscard]] bool Take(const LumString& dataDirectory, LumString& error);

private:
    FileDescriptor file_;
};

#pragma once

#include "host/file/FileDescriptor.h"
#include "host/text/LumString.h"

/// Keeps a second agent out of a data directory: an advisory lock on the directory itself, and one on the
/// file agent.lock there, which holds the agent's process number and which somebody could remove. The system
/// drops the locks when the process ends, however it ends.
class InstanceLock {
public:
    /// Takes the locks. False, with the reason in `error`, where another agent has one or the file cannot be
    /// opened. `dataDirectory` ends with a separator.
    [[nodiscard]] bool Take(const LumString& dataDirectory, LumString& error);

private:
    FileDescriptor directory_;
    FileDescriptor file_;
};

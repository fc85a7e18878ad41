#pragma once

#include "agent/CommandLine.h"
#include "host/text/LumString.h"

/// Lets an agent that root has started on another user's configuration directory go on as that user, as the
/// service manager would have it: its files then belong to that user, and root runs nothing that somebody
/// else can change. The data directory and that of the socket are made for the user where they are missing,
/// and given to it where they are root's and empty. Does nothing where the agent does not run as root, or
/// where the directory is missing, or belongs to root or to a user without a name. False, with the reason,
/// where the step cannot be taken.
[[nodiscard]] bool BecomeOwnerOfConfiguration(const CommandLine& commandLine, LumString& error);

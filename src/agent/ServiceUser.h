#pragma once

#include "agent/CommandLine.h"
#include "host/text/LumString.h"

/// Has an agent that root starts on the configuration directory of another user become that user, as the
/// service manager would: what it makes belongs to that user, and nobody else could change what root runs.
/// The data directory and that of the socket are made for the user where they are missing, and given to it
/// where they are root's and empty. Nothing happens without root, and where the directory is root's, missing,
/// or of a user without a name. False, with the reason, where the step cannot be taken.
[[nodiscard]] bool BecomeOwnerOfConfiguration(const CommandLine& commandLine, LumString& error);

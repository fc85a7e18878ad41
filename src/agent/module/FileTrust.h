#pragma once

#include "host/text/LumString.h"

/// Whether others could change what the agent is about to use.

/// False, with a sentence that says what to do, where `path`, a file or directory that is there, belongs
/// neither to the agent's user nor to root, or may be written by other users, or by a group other than the
/// agent's own. A symbolic link is followed: what it leads to counts. False also for a path that cannot be
/// looked at.
[[nodiscard]] bool IsTrustworthy(const LumString& path, LumString& error);

/// The same for every ini file in `directory`, and for the directory itself.
[[nodiscard]] bool IsTrustworthyConfiguration(const LumString& directory, LumString& error);

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

/// The sockets at which an agent is looked for, in this order: what was asked for, as the only one, else what
/// the environment variable LUMCTL_SOCKET names, as the only one, else where a service and an agent that was
/// started by hand have theirs.
[[nodiscard]] std::vector<std::string> SocketCandidates(const std::optional<std::string>& asked);

/// Who may use a socket that the caller may not, and what to do about it: a part of a sentence that follows
/// "no permission to use PATH: ". `user` is the caller's name.
[[nodiscard]] std::string PermissionAdvice(mode_t mode, std::string_view owner, std::string_view group,
                                           std::string_view user);

/// The whole sentence for a socket at `path` that may not be used.
[[nodiscard]] std::string DescribeMissingPermission(const std::string& path);

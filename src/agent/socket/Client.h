#pragma once

#include <vector>

#include <sys/types.h>

#include "host/text/LumString.h"

/// Who is at the other end of a connection.
struct Client {
    bool isLocal = false;  ///< by the Unix socket; else by the network, and the rest means nothing
    uid_t user = 0;
    std::vector<gid_t> groups;  ///< the process's own first
};

/// The process at the other end of a connected Unix socket, as it was when it connected, by the system's own
/// word. A socket of another kind gives a client that is not local.
[[nodiscard]] Client ReadClient(int socket);

/// The name of the user; the number in decimal where it has none.
[[nodiscard]] LumString UserName(uid_t user);

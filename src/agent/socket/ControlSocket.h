#pragma once

#include <optional>
#include <utility>
#include <vector>

#include <sys/types.h>

#include "host/file/FileDescriptor.h"
#include "host/text/LumString.h"

/// Who may connect to the socket besides its owner.
struct SocketGroups {
    std::optional<gid_t> group;  ///< the file's own group
    std::vector<gid_t> further;  ///< by an access list of the file system (acl(5))
};

/// The listening Unix socket and its file. Belongs to one thread at a time.
class ControlSocket {
public:
    ControlSocket() = default;
    ControlSocket(const ControlSocket&) = delete;
    ControlSocket& operator=(const ControlSocket&) = delete;
    ~ControlSocket() { RemoveFile(); }

    /// Says whether a socket could be made at `path`, without making it. False, with the reason in `error`,
    /// where the path is too long, is taken by something that is not a socket, or by one that somebody
    /// serves.
    [[nodiscard]] static bool Check(const LumString& path, LumString& error);

    /// Makes the socket and listens on it, in place of one that nobody serves any more. Its mode is 0600 from
    /// its first moment; with groups it becomes 0660 once it belongs to them. False, with the reason in
    /// `error` and no file left, where that fails.
    [[nodiscard]] bool Open(const LumString& path, const SocketGroups& groups, LumString& error);

    /// Hands the listening descriptor over.
    [[nodiscard]] FileDescriptor ReleaseListener() { return std::move(listener_); }

    /// Removes the socket's file, unless another one stands in its place by now.
    void RemoveFile();

private:
    [[nodiscard]] bool Bind(LumString& error);
    [[nodiscard]] bool OpenToGroups(const SocketGroups& groups, LumString& error) const;

    FileDescriptor listener_;
    LumString path_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

/// The number of the group that `name` names, or that it is; nothing where there is none.
[[nodiscard]] std::optional<gid_t> FindGroup(const LumString& name);

#pragma once

#include <optional>

#include <sys/types.h>

#include "host/file/FileDescriptor.h"
#include "host/text/LumString.h"

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
    /// its first moment; with `group` it becomes 0660 once it belongs to that group. False, with the reason
    /// in `error` and no file left, where that fails.
    [[nodiscard]] bool Open(const LumString& path, std::optional<gid_t> group, LumString& error);

    /// Hands the listening descriptor over.
    [[nodiscard]] FileDescriptor ReleaseListener() { return std::move(listener_); }

    /// Removes the socket's file, unless another one stands in its place by now.
    void RemoveFile();

private:
    [[nodiscard]] bool Bind(LumString& error);
    [[nodiscard]] bool OpenToGroup(gid_t group, LumString& error) const;

    FileDescriptor listener_;
    LumString path_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

/// The number of the group that `name` names, or that it is; nothing where there is none.
[[nodiscard]] std::optional<gid_t> FindGroup(const LumString& name);

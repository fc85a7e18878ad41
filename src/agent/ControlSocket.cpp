#include "agent/ControlSocket.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <string>
#include <system_error>
#include <vector>

#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "host/text/LumSystemError.h"

namespace {

constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kOwnerAndGroup = 0660;

/// False, with the reason, where the path does not fit into an address.
bool MakeAddress(const LumString& path, sockaddr_un& address, LumString& error) {
    address = {};
    address.sun_family = AF_UNIX;
    constexpr std::size_t longest = sizeof(address.sun_path) - 1;
    if (path.IsEmpty() || path.GetLength() > longest) {
        error.Printf("The path of the control socket has %d bytes, it must have 1 to %d: %S",
                     static_cast<int32_t>(path.GetLength()), static_cast<int32_t>(longest), path);
        return false;
    }
    std::memcpy(address.sun_path, path.GetString(), path.GetLength());
    return true;
}

FileDescriptor MakeSocket() {
    return FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

template <class Call>
int WithAddress(Call call, int descriptor, const sockaddr_un& address) {
    return call(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

/// True where nobody listens at the address any more.
bool IsStale(const sockaddr_un& address) {
    const FileDescriptor probe = MakeSocket();
    return probe.IsOpen() && WithAddress(::connect, probe.Get(), address) != 0 && errno == ECONNREFUSED;
}

}  // namespace

bool ControlSocket::Check(const LumString& path, LumString& error) {
    sockaddr_un address = {};
    if (!MakeAddress(path, address, error)) {
        return false;
    }
    struct stat status = {};
    if (::lstat(path.GetString(), &status) != 0) {
        if (errno == ENOENT) {
            return true;
        }
        error.Printf("Cannot make the control socket %S: %S", path, LumSystemErrorText());
        return false;
    }
    if (!S_ISSOCK(status.st_mode)) {
        error.Printf("Cannot make the control socket %S: something that is not a socket is in the way", path);
        return false;
    }
    if (!IsStale(address)) {
        error.Printf("Cannot make the control socket %S: another process serves it", path);
        return false;
    }
    return true;
}

bool ControlSocket::Open(const LumString& path, std::optional<gid_t> group, LumString& error) {
    if (!Check(path, error)) {
        return false;
    }
    path_ = path;
    if (!Bind(error) || (group.has_value() && !OpenToGroup(*group, error))) {
        RemoveFile();
        listener_.Close();
        return false;
    }
    return true;
}

bool ControlSocket::Bind(LumString& error) {
    sockaddr_un address = {};
    if (!MakeAddress(path_, address, error)) {
        return false;
    }
    ::unlink(path_.GetString());
    listener_ = MakeSocket();
    // The file takes its mode from the socket, less the umask (Linux, unix_bind): so it never has another.
    struct stat status = {};
    if (!listener_.IsOpen() || ::fchmod(listener_.Get(), kOwnerOnly) != 0 ||
        WithAddress(::bind, listener_.Get(), address) != 0 || ::lstat(path_.GetString(), &status) != 0) {
        error.Printf("Cannot make the control socket %S: %S", path_, LumSystemErrorText());
        return false;
    }
    device_ = status.st_dev;
    inode_ = status.st_ino;
    if (::listen(listener_.Get(), SOMAXCONN) != 0) {
        error.Printf("Cannot listen on the control socket %S: %S", path_, LumSystemErrorText());
        return false;
    }
    return true;
}

bool ControlSocket::OpenToGroup(gid_t group, LumString& error) const {
    constexpr auto sameOwner = static_cast<uid_t>(-1);
    if (::lchown(path_.GetString(), sameOwner, group) != 0 ||
        ::chmod(path_.GetString(), kOwnerAndGroup) != 0) {
        error.Printf("Cannot open the control socket %S to its group: %S", path_, LumSystemErrorText());
        return false;
    }
    return true;
}

void ControlSocket::RemoveFile() {
    struct stat status = {};
    if (inode_ != 0 && ::lstat(path_.GetString(), &status) == 0 && status.st_dev == device_ &&
        status.st_ino == inode_) {
        ::unlink(path_.GetString());
    }
    inode_ = 0;
}

std::optional<gid_t> FindGroup(const LumString& name) {
    group entry = {};
    group* found = nullptr;
    std::vector<char> buffer(1024);
    while (::getgrnam_r(name.GetString(), &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
        buffer.resize(buffer.size() * 2);
    }
    if (found != nullptr) {
        return found->gr_gid;
    }
    gid_t number = 0;
    const char* const end = name.View().data() + name.GetLength();
    const auto [stop, error] = std::from_chars(name.View().data(), end, number);
    return error == std::errc() && stop == end ? std::optional<gid_t>(number) : std::nullopt;
}

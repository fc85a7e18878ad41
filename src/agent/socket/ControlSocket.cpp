#include "agent/socket/ControlSocket.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string>
#include <system_error>
#include <vector>

#include <endian.h>
#include <grp.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <linux/xattr.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/xattr.h>
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

/// Lets the owner, the file's group where `isForGroup`, and the groups of `further` read and write, in one
/// step. False, with errno, where the file system has no such lists or refuses.
bool SetAccessList(const char* path, bool isForGroup, std::vector<gid_t> further) {
    constexpr uint16_t readWrite = ACL_READ | ACL_WRITE;
    constexpr auto kNoId = static_cast<uint32_t>(ACL_UNDEFINED_ID);
    // The list is in ascending order of its groups, each once.
    std::sort(further.begin(), further.end());
    further.erase(std::unique(further.begin(), further.end()), further.end());
    std::vector<posix_acl_xattr_entry> entries = {
        {htole16(ACL_USER_OBJ), htole16(readWrite), htole32(kNoId)},
        {htole16(ACL_GROUP_OBJ), htole16(isForGroup ? readWrite : uint16_t{0}), htole32(kNoId)}};
    for (const gid_t group : further) {
        entries.push_back({htole16(ACL_GROUP), htole16(readWrite), htole32(group)});
    }
    entries.push_back({htole16(ACL_MASK), htole16(readWrite), htole32(kNoId)});
    entries.push_back({htole16(ACL_OTHER), htole16(0), htole32(kNoId)});
    const posix_acl_xattr_header header{htole32(POSIX_ACL_XATTR_VERSION)};
    std::string list(reinterpret_cast<const char*>(&header), sizeof(header));
    list.append(reinterpret_cast<const char*>(entries.data()), entries.size() * sizeof(entries.front()));
    return ::lsetxattr(path, XATTR_NAME_POSIX_ACL_ACCESS, list.data(), list.size(), 0) == 0;
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

bool ControlSocket::Open(const LumString& path, const SocketGroups& groups, LumString& error) {
    if (!Check(path, error)) {
        return false;
    }
    path_ = path;
    if (!Bind(error) || !OpenToGroups(groups, error)) {
        RemoveFile();
        listener_.Close();
        return false;
    }
    return true;
}

bool ControlSocket::Bind(LumString& error) {
    sockaddr_un address = {};
    static_cast<void>(MakeAddress(path_, address, error));  // Check has let the path pass
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

bool ControlSocket::OpenToGroups(const SocketGroups& groups, LumString& error) const {
    constexpr auto sameOwner = static_cast<uid_t>(-1);
    const char* const path = path_.GetString();
    const bool hasOwnGroup = !groups.group.has_value() || ::lchown(path, sameOwner, *groups.group) == 0;
    const bool isOpen =
        hasOwnGroup &&
        (!groups.further.empty() ? SetAccessList(path, groups.group.has_value(), groups.further)
                                 : !groups.group.has_value() || ::chmod(path, kOwnerAndGroup) == 0);
    if (!isOpen) {
        error.Printf("Cannot open the control socket %S to its group: %S", path_, LumSystemErrorText());
    }
    return isOpen;
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

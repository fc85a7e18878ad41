#include "agent/ServiceUser.h"

#include <cerrno>
#include <filesystem>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/file/FileDescriptor.h"
#include "host/file/LumFile.h"
#include "host/text/LumSystemError.h"

namespace {

constexpr mode_t kForAllToEnter = 0755;

bool IsEmptyDirectory(const std::string& path) {
    std::error_code failure;
    return std::filesystem::is_empty(path, failure) && !failure;
}

/// Leaves alone what is not a directory of root's with nothing in it: the start says later what is wrong
/// there.
bool HandOver(const std::string& path, const passwd& user, bool forAll) {
    const bool isNew = !DirExists(LumString(std::string_view(path)));
    if (isNew && !PathCreate(LumString(std::string_view(path)))) {
        return false;
    }
    const FileDescriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    if (!directory.IsOpen() || ::fstat(directory.Get(), &status) != 0 || status.st_uid != 0 ||
        !IsEmptyDirectory(path)) {
        return true;
    }
    return ::fchown(directory.Get(), user.pw_uid, user.pw_gid) == 0 &&
           (!isNew || !forAll || ::fchmod(directory.Get(), kForAllToEnter) == 0);
}

bool Become(const passwd& user) {
    return ::initgroups(user.pw_name, user.pw_gid) == 0 && ::setgid(user.pw_gid) == 0 &&
           ::setuid(user.pw_uid) == 0;
}

}  // namespace

bool BecomeOwnerOfConfiguration(const CommandLine& commandLine, LumString& error) {
    struct stat status = {};
    if (::geteuid() != 0 || ::stat(commandLine.configDirectory.c_str(), &status) != 0 || status.st_uid == 0) {
        return true;
    }
    const passwd* const user = ::getpwuid(status.st_uid);
    if (user == nullptr) {
        return true;
    }
    const std::string socketDirectory =
        std::filesystem::path(commandLine.socketPath.value_or("")).parent_path().string();
    if (!HandOver(commandLine.dataDirectory, *user, false) ||
        (!socketDirectory.empty() && !HandOver(socketDirectory, *user, true)) || !Become(*user)) {
        const LumString reason = LumSystemErrorText();
        error.Printf("Cannot become user %S, to whom the configuration belongs: %S",
                     std::string_view(user->pw_name), reason);
        return false;
    }
    return true;
}
